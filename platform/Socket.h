/// One IPv4 socket API for POSIX and Windows. Where the systems differ, the functions behave as on
/// 64-bit Windows: signals do not interrupt a receive, a send on a closed connection fails without
/// a signal, a receive of 0 bytes returns at once, and a datagram larger than the buffer is a
/// failed receive. No function throws. Child processes do not inherit handles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

namespace platform {

/// A socket handle of either system.
using SocketHandle = std::uintptr_t;
/// The handle that is not a socket: all bits set.
inline constexpr SocketHandle invalidSocket = ~SocketHandle{0};

/// An IPv4 socket address, with port and address in network byte order. All zero means no address.
struct SSocketAddress {
    std::uint16_t family = 0;
    std::uint16_t port = 0;
    std::uint32_t address = 0;
};
/// The value of `SSocketAddress::family` (AF_INET, 2 on both systems).
inline constexpr std::uint16_t familyIpv4 = 2;

/// Converts between host and network byte order.
[[nodiscard]] std::uint16_t NetworkOrder(std::uint16_t value) noexcept;
/// Returns the socket address of an IPv4 address (network order) and a port (host order).
[[nodiscard]] SSocketAddress MakeSocketAddress(std::uint32_t address, std::uint16_t port) noexcept;

/// Parses an IPv4 address as `inet_addr` does and returns it in network order. Returns nothing for
/// other texts and for 255.255.255.255, which `inet_addr` cannot tell from a failure.
[[nodiscard]] std::optional<std::uint32_t> ParseIpv4(const char* text) noexcept;
/// Returns the result of `ParseIpv4` or, for a host name, the first IPv4 address of the name
/// service, in network order. 255.255.255.255 is never a host. Blocks for the name service.
/// Thread-safe.
[[nodiscard]] std::optional<std::uint32_t> ResolveIpv4(const char* text) noexcept;
/// Stores the host name of this machine. Returns false when it does not fit, with its NUL.
[[nodiscard]] bool HostName(char* buffer, std::size_t size) noexcept;

/// Open a new blocking socket; `invalidSocket` on failure.
[[nodiscard]] SocketHandle OpenTcpSocket() noexcept;
[[nodiscard]] SocketHandle OpenUdpSocket() noexcept;
/// Closes a handle. A receive that blocks on it in another thread must have been cancelled before.
void CloseSocket(SocketHandle handle) noexcept;

/// Connects. Has no time limit but the system's.
[[nodiscard]] bool ConnectSocket(SocketHandle handle, const SSocketAddress& to) noexcept;
/// Like `ConnectSocket`, with a time limit. After a failure the socket can only be closed.
[[nodiscard]] bool ConnectWithTimeout(SocketHandle handle, const SSocketAddress& to,
                                      std::uint32_t milliseconds) noexcept;
/// Binds to all local addresses and a port that the system picks.
[[nodiscard]] bool BindToAnyPort(SocketHandle handle) noexcept;
/// Returns the local port in host order.
[[nodiscard]] std::optional<std::uint16_t> LocalPort(SocketHandle handle) noexcept;

/// Sends once. Returns the number of bytes sent, or a negative number on failure.
[[nodiscard]] std::ptrdiff_t Send(SocketHandle handle, const void* data, std::size_t size) noexcept;
/// Receives from a stream once, at most `size` bytes. Returns 0 when the peer has closed the
/// connection (or `size` is 0), a negative number on failure and when nothing arrives within the
/// time-out.
[[nodiscard]] std::ptrdiff_t Receive(SocketHandle handle, void* buffer, std::size_t size) noexcept;
/// Sends one datagram. Returns its size, or a negative number on failure.
[[nodiscard]] std::ptrdiff_t SendDatagram(SocketHandle handle, const void* data, std::size_t size,
                                          const SSocketAddress& to) noexcept;
/// Receives one datagram, from any sender. Returns its size (0 for an empty one), or a negative
/// number on failure and for a datagram that does not fit, which is lost. After `CancelReceives` it
/// returns 0 or a negative number, depending on the system.
[[nodiscard]] std::ptrdiff_t ReceiveDatagram(SocketHandle handle, void* buffer,
                                             std::size_t size) noexcept;

/// Sets the time-out of later stream receives, in milliseconds.
bool SetReceiveTimeout(SocketHandle handle, std::uint32_t milliseconds) noexcept;
/// Sets the time-out of later sends, in milliseconds. A signal restarts it.
bool SetSendTimeout(SocketHandle handle, std::uint32_t milliseconds) noexcept;
/// Returns the size of the system's receive buffer, in bytes.
[[nodiscard]] std::optional<std::int32_t> ReceiveBufferSize(SocketHandle handle) noexcept;
/// Requests another size. A process that may exceed the system's limit is not limited, as on
/// Windows; others get at most the limit.
bool SetReceiveBufferSize(SocketHandle handle, std::int32_t bytes) noexcept;
/// Makes a receive that is blocked on this handle, and every later one, return at once. The socket
/// stays open; close it when no thread uses it any more.
void CancelReceives(SocketHandle handle) noexcept;

/// Owns a socket handle.
class CSocket {
   public:
    CSocket() noexcept = default;
    explicit CSocket(SocketHandle owned) noexcept : socket(owned) {}
    CSocket(CSocket&& other) noexcept : socket(other.Release()) {}
    CSocket& operator=(CSocket&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ~CSocket() { Reset(); }

    [[nodiscard]] bool valid() const noexcept { return socket != invalidSocket; }
    [[nodiscard]] SocketHandle handle() const noexcept { return socket; }
    /// Releases the ownership.
    [[nodiscard]] SocketHandle Release() noexcept { return std::exchange(socket, invalidSocket); }
    /// Closes the socket, if any, and takes ownership of another one.
    void Reset(SocketHandle owned = invalidSocket) noexcept {
        if (valid()) CloseSocket(socket);
        socket = owned;
    }

   private:
    SocketHandle socket = invalidSocket;
};

}  // namespace platform
