/// The simulator's sockets: non-blocking, never inherited, each bound to a camera's own address.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "FramePacer.h"

namespace korusim {

/// The one owner of a file descriptor.
class CDescriptor {
   public:
    CDescriptor() noexcept = default;
    explicit CDescriptor(int owned) noexcept : descriptor(owned) {}
    CDescriptor(CDescriptor&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    CDescriptor& operator=(CDescriptor&& other) noexcept {
        std::swap(descriptor, other.descriptor);
        return *this;
    }
    ~CDescriptor();

    [[nodiscard]] bool valid() const noexcept { return descriptor >= 0; }
    [[nodiscard]] int get() const noexcept { return descriptor; }

   private:
    int descriptor = -1;
};

/// A dotted address, which must be good, and a port.
[[nodiscard]] sockaddr_in MakeAddress(const std::string& address, std::uint16_t port);

/// Sockets, or a sentence that says why there is none.
struct SSocketResult {
    CDescriptor socket;
    std::string error;
};
[[nodiscard]] SSocketResult ListenTcp(const std::string& address, std::uint16_t port);
/// A UDP socket on a port that the system picks.
[[nodiscard]] SSocketResult OpenUdp(const std::string& address);
[[nodiscard]] std::uint16_t LocalPort(const CDescriptor& socket);

/// One accepted TCP connection with what is still to be sent on it.
class CPeer {
   public:
    CPeer(CDescriptor accepted, const sockaddr_in& remote)
        : socket(std::move(accepted)), address(remote) {}

    [[nodiscard]] int descriptor() const noexcept { return socket.get(); }
    [[nodiscard]] const sockaddr_in& remote() const noexcept { return address; }

    /// What has come, at most some kilobytes; none when the peer has gone. Empty: nothing yet.
    [[nodiscard]] std::optional<std::string> Receive();
    /// Sends these bytes by one send of their own, no earlier than `due`.
    void Queue(std::string bytes, TimePoint due);
    /// Sends what is due. False when the peer is gone or doesn't read.
    [[nodiscard]] bool Flush(TimePoint now);
    /// No more requests are read; the connection is to be closed when all is sent.
    void CloseWhenSent() noexcept { closing = true; }
    [[nodiscard]] bool closeRequested() const noexcept { return closing; }
    [[nodiscard]] bool done() const noexcept { return closing && waiting.empty(); }
    /// When `Flush` has something to do; none while nothing waits, or while the peer's system
    /// must take bytes first, for which `blockedOnSend` is true.
    [[nodiscard]] std::optional<TimePoint> nextDue() const;
    [[nodiscard]] bool blockedOnSend() const noexcept { return blocked; }

   private:
    struct SPending {
        std::string bytes;
        TimePoint due;
    };

    CDescriptor socket;
    sockaddr_in address;
    std::deque<SPending> waiting;  // sent in this order, also when a later one is due earlier
    bool blocked = false;
    bool closing = false;
};

/// Accepts one waiting connection; none when none waits.
[[nodiscard]] std::optional<CPeer> Accept(const CDescriptor& listener);

/// Datagrams collected for one system call. Buffers are made once.
class COutbox {
   public:
    /// Collects datagrams of at most so many bytes for one receiver.
    void Aim(const CDescriptor& socket, const sockaddr_in& to, std::size_t maxBytes);
    /// Copies a datagram; sends when the box is full.
    void Add(std::span<const std::uint8_t> datagram);
    /// Sends all that is there. What the system doesn't take is lost, as on a network.
    void Flush();
    [[nodiscard]] std::uint64_t refused() const noexcept { return refusedDatagrams; }

   private:
    int socket = -1;
    sockaddr_in receiver{};
    std::size_t slotBytes = 0;
    std::vector<std::uint8_t> slots;
    std::vector<std::size_t> sizes;
    std::vector<mmsghdr> messages;
    std::vector<iovec> pieces;
    std::uint64_t refusedDatagrams = 0;
};

}  // namespace korusim
