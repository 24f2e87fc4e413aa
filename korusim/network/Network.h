/// The simulator's sockets. They are non-blocking, not inherited, and bound to a camera's address.
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

/// Owns a file descriptor.
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

/// A valid dotted address and a port.
[[nodiscard]] sockaddr_in MakeAddress(const std::string& address, std::uint16_t port);

[[nodiscard]] sockaddr_in WithPort(sockaddr_in address, std::uint16_t port);
[[nodiscard]] bool SameAddress(const sockaddr_in& left, const sockaddr_in& right);

/// A socket, or a sentence with the reason of the failure.
struct SSocketResult {
    CDescriptor socket;
    std::string error;
};
[[nodiscard]] SSocketResult ListenTcp(const std::string& address, std::uint16_t port);
/// Opens a UDP socket on a port that the system picks.
[[nodiscard]] SSocketResult OpenUdp(const std::string& address);
[[nodiscard]] std::uint16_t LocalPort(const CDescriptor& socket);

/// An accepted TCP connection and the bytes that are still to be sent on it.
class CPeer {
   public:
    CPeer(CDescriptor accepted, const sockaddr_in& remote)
        : socket(std::move(accepted)), address(remote) {}

    [[nodiscard]] int descriptor() const noexcept { return socket.get(); }
    [[nodiscard]] const sockaddr_in& remote() const noexcept { return address; }

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

    CDescriptor socket;
    sockaddr_in address;
    std::deque<SPending> waiting;  // sent in this order, even if a later one is due earlier
    bool blocked = false;
    bool closing = false;
};

/// Accepts one connection; returns nothing if none waits.
[[nodiscard]] std::optional<CPeer> Accept(const CDescriptor& listener);

/// Collects datagrams for one system call. The buffers are allocated once.
class COutbox {
   public:
    /// Prepares for datagrams of at most this size to one receiver.
    void Aim(const CDescriptor& socket, const sockaddr_in& to, std::size_t maxBytes);
    /// Copies a datagram. Sends all when there is no room for more.
    void Add(std::span<const std::uint8_t> datagram);
    /// Sends all datagrams. Those that the system refuses are lost, as on a network.
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
