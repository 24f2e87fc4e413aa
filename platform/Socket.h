/// IPv4 sockets of both systems behind one face. Where the systems differ, these calls behave as
/// on 64-bit Windows: a receive is not interrupted by signals, a send to a closed connection fails
/// without a signal, a receive of 0 bytes returns at once, and a datagram larger than its buffer
/// is a failed receive. No call throws. Handles are never inherited by child processes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

namespace platform {

/// A socket of the system, wide enough for both.
using SocketHandle = std::uintptr_t;
/// The handle that is no socket: all bits set.
inline constexpr SocketHandle noSocket = ~SocketHandle{0};

/// An IPv4 socket address as it lies on the wire: port and address in network byte order.
/// All zero means none.
struct SSocketAddress {
    std::uint16_t family = 0;
    std::uint16_t port = 0;
    std::uint32_t address = 0;
};
/// The value of `SSocketAddress::family` (AF_INET, 2 on both systems).
inline constexpr std::uint16_t familyIpv4 = 2;

/// Swaps between host and network byte order.
[[nodiscard]] std::uint16_t NetworkOrder(std::uint16_t value) noexcept;
/// An address with the given port (host order) and IPv4 address (network order).
[[nodiscard]] SSocketAddress MakeSocketAddress(std::uint32_t address, std::uint16_t port) noexcept;

/// The IPv4 address, in network order, that `inet_addr` reads from a text; none for a text that it
/// can't read and for the address of all ones, which it can't tell from a failure.
[[nodiscard]] std::optional<std::uint32_t> ParseIpv4(const char* text) noexcept;
/// `ParseIpv4`, else the first IPv4 address, in network order, that the name service has for the
/// text. Blocks while it asks. Safe from several threads.
[[nodiscard]] std::optional<std::uint32_t> ResolveIpv4(const char* text) noexcept;
/// The bare name of this machine; false when there is none that fits with its NUL.
[[nodiscard]] bool HostName(char* buffer, std::size_t size) noexcept;

/// New blocking sockets; `noSocket` on failure.
[[nodiscard]] SocketHandle OpenTcpSocket() noexcept;
[[nodiscard]] SocketHandle OpenUdpSocket() noexcept;
/// Closes a handle. A receive that another thread has blocked on it must be woken first.
void CloseSocket(SocketHandle handle) noexcept;

/// Connects; blocks with no limit of its own.
[[nodiscard]] bool ConnectSocket(SocketHandle handle, const SSocketAddress& to) noexcept;
/// `ConnectSocket` that gives up after so many milliseconds; on failure the socket is good for
/// nothing but closing.
[[nodiscard]] bool ConnectSocketWithin(SocketHandle handle, const SSocketAddress& to,
                                       std::uint32_t milliseconds) noexcept;
/// Binds to every local address and a port that the system picks.
[[nodiscard]] bool BindToAnyPort(SocketHandle handle) noexcept;
/// The local port in host order.
[[nodiscard]] std::optional<std::uint16_t> LocalPort(SocketHandle handle) noexcept;

/// One send; gives the bytes taken, negative on failure.
[[nodiscard]] std::ptrdiff_t Send(SocketHandle handle, const void* data, std::size_t size) noexcept;
/// One stream receive of what is there, at most `size` bytes: 0 when the peer has closed (or when
/// `size` is 0), negative on failure or when nothing came within the receive time-out.
[[nodiscard]] std::ptrdiff_t Receive(SocketHandle handle, void* buffer, std::size_t size) noexcept;
/// One datagram out; gives its size, negative on failure.
[[nodiscard]] std::ptrdiff_t SendDatagram(SocketHandle handle, const void* data, std::size_t size,
                                          const SSocketAddress& to) noexcept;
/// One datagram in, from anyone: its size (0 for an empty one), negative on failure and for a
/// datagram that doesn't fit, which is lost. On a woken socket 0 or negative, by the system.
[[nodiscard]] std::ptrdiff_t ReceiveDatagram(SocketHandle handle, void* buffer,
                                             std::size_t size) noexcept;

/// Limits each later stream receive, in milliseconds.
bool SetReceiveTimeout(SocketHandle handle, std::uint32_t milliseconds) noexcept;
/// Limits each later send, in milliseconds; a signal begins the limit anew.
bool SetSendTimeout(SocketHandle handle, std::uint32_t milliseconds) noexcept;
/// Size in bytes of the system's buffer for what waits to be received.
[[nodiscard]] std::optional<std::int32_t> ReceiveBufferSize(SocketHandle handle) noexcept;
/// Asks for another size. As on Windows there is no cap where the process has the right to pass
/// the system's limit; elsewhere the system's limit caps it.
bool SetReceiveBufferSize(SocketHandle handle, std::int32_t bytes) noexcept;
/// Makes a receive that is blocked on this handle, and every later one, return at once. The socket
/// stays open: close it when no thread uses it any more.
void WakeReceiver(SocketHandle handle) noexcept;

/// The one owner of a socket.
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

    [[nodiscard]] bool valid() const noexcept { return socket != noSocket; }
    [[nodiscard]] SocketHandle handle() const noexcept { return socket; }
    /// Gives the ownership away.
    [[nodiscard]] SocketHandle Release() noexcept { return std::exchange(socket, noSocket); }
    /// Closes the socket, if there is one, and takes over another.
    void Reset(SocketHandle owned = noSocket) noexcept {
        if (valid()) CloseSocket(socket);
        socket = owned;
    }

   private:
    SocketHandle socket = noSocket;
};

}  // namespace platform
