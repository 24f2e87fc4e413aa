/// A connection of a client: what it sends, and what is still to be sent to it.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <utility>

#include "FramePacer.h"
#include "ServerSockets.h"

namespace korusim {

/// An accepted TCP connection and the bytes that are still to be sent on it.
class CPeer {
   public:
    explicit CPeer(platform::SAccepted accepted)
        : socket(std::move(accepted.socket)), address(accepted.remote) {}

    [[nodiscard]] platform::SocketHandle handle() const noexcept { return socket.handle(); }
    [[nodiscard]] const platform::SSocketAddress& remote() const noexcept { return address; }

    /// Returns the bytes received, at most some kilobytes; empty if there are none yet, nothing if
    /// the peer has closed.
    [[nodiscard]] std::optional<std::string> Receive();
    /// Sends the bytes by a separate send, no earlier than `due`.
    void Queue(std::string bytes, TimePoint due);
    /// Sends the bytes that are due. Returns false if the peer has closed or does not read.
    [[nodiscard]] bool Flush(TimePoint now);
    /// Stops reading requests. The connection is to be closed when everything is sent.
    void CloseWhenSent() noexcept { closing = true; }
    [[nodiscard]] bool closeRequested() const noexcept { return closing; }
    [[nodiscard]] bool done() const noexcept { return closing && waiting.empty(); }
    /// Returns when to call `Flush`; nothing while no bytes wait, or while the send buffer is full,
    /// in which case `blockedOnSend` is true.
    [[nodiscard]] std::optional<TimePoint> nextDue() const;
    [[nodiscard]] bool blockedOnSend() const noexcept { return blocked; }

   private:
    struct SPending {
        std::string bytes;
        TimePoint due;
    };

    platform::CSocket socket;
    platform::SSocketAddress address;
    std::deque<SPending> waiting;  // sent in this order, even if a later one is due earlier
    bool blocked = false;
    bool closing = false;
};

}  // namespace korusim
