#include "Socket.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace platform {
namespace {

static_assert(sizeof(SOCKET) == sizeof(SocketHandle) && INVALID_SOCKET == invalidSocket);

SocketHandle OpenSocket(int type, int protocol) noexcept {
    // Like `socket`, except that child processes do not inherit the handle.
    return ::WSASocketW(AF_INET, type, protocol, nullptr, 0,
                        WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
}

sockaddr_in SystemAddress(const SSocketAddress& from) noexcept {
    sockaddr_in address{};
    address.sin_family = static_cast<decltype(address.sin_family)>(from.family);
    address.sin_port = from.port;
    address.sin_addr.s_addr = from.address;
    return address;
}

/// Converts a size to the int that the system's functions expect.
int SystemSize(std::size_t size) noexcept {
    return static_cast<int>(
        std::min<std::size_t>(size, static_cast<std::size_t>(std::numeric_limits<int>::max())));
}

bool SetBlocking(SocketHandle handle, bool blocking) noexcept {
    u_long nonBlocking = blocking ? 0 : 1;
    return ::ioctlsocket(handle, static_cast<long>(FIONBIO), &nonBlocking) == 0;
}

/// Waits until a pending connection is established; false when it fails or the limit has passed.
bool ConnectionMade(SocketHandle handle, std::uint32_t milliseconds) noexcept {
    // Not WSAPoll, which before Windows 10 2004 does not report a failed connection.
    fd_set made{};
    made.fd_count = 1;
    made.fd_array[0] = handle;
    fd_set failed = made;
    timeval limit{};
    limit.tv_sec = static_cast<long>(milliseconds / 1000);
    limit.tv_usec = static_cast<long>(milliseconds % 1000) * 1000;
    return ::select(0, nullptr, &made, &failed, &limit) > 0 && made.fd_count == 1;
}

bool SetOption(SocketHandle handle, int option, const void* value, int size) noexcept {
    return ::setsockopt(handle, SOL_SOCKET, option, static_cast<const char*>(value), size) == 0;
}

}  // namespace

std::uint16_t NetworkOrder(std::uint16_t value) noexcept { return htons(value); }

SSocketAddress MakeSocketAddress(std::uint32_t address, std::uint16_t port) noexcept {
    static_assert(familyIpv4 == AF_INET);
    return {familyIpv4, NetworkOrder(port), address};
}

std::optional<std::uint32_t> ParseIpv4(const char* text) noexcept {
    const std::uint32_t address = ::inet_addr(text);
    if (address == INADDR_NONE) return std::nullopt;
    return address;
}

std::optional<std::uint32_t> ResolveIpv4(const char* text) noexcept {
    if (const auto address = ParseIpv4(text)) return address;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(text, nullptr, &hints, &found) != 0 || found == nullptr) return std::nullopt;
    // Of several addresses the first one is used, without trying the others. getaddrinfo may sort
    // them (RFC 6724) where gethostbyname would keep the order of the name server.
    sockaddr_in first{};
    std::memcpy(&first, found->ai_addr, sizeof(first));
    ::freeaddrinfo(found);
    // 255.255.255.255 is never a host, although getaddrinfo accepts it in every spelling.
    if (first.sin_addr.s_addr == INADDR_NONE) return std::nullopt;
    return first.sin_addr.s_addr;
}

bool HostName(char* buffer, std::size_t size) noexcept {
    return size != 0 && ::gethostname(buffer, SystemSize(size)) == 0;
}

SocketHandle OpenTcpSocket() noexcept { return OpenSocket(SOCK_STREAM, 0); }
SocketHandle OpenUdpSocket() noexcept { return OpenSocket(SOCK_DGRAM, IPPROTO_UDP); }

void CloseSocket(SocketHandle handle) noexcept { ::closesocket(handle); }

bool ConnectSocket(SocketHandle handle, const SSocketAddress& to) noexcept {
    const sockaddr_in address = SystemAddress(to);
    return ::connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

bool ConnectWithTimeout(SocketHandle handle, const SSocketAddress& to,
                        std::uint32_t milliseconds) noexcept {
    if (!SetBlocking(handle, false)) return false;
    const bool made = ConnectSocket(handle, to) || (::WSAGetLastError() == WSAEWOULDBLOCK &&
                                                    ConnectionMade(handle, milliseconds));
    return made && SetBlocking(handle, true);
}

bool BindToAnyPort(SocketHandle handle) noexcept {
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    return ::bind(handle, reinterpret_cast<const sockaddr*>(&any), sizeof(any)) == 0;
}

std::optional<std::uint16_t> LocalPort(SocketHandle handle) noexcept {
    sockaddr_in local{};
    int size = sizeof(local);
    if (::getsockname(handle, reinterpret_cast<sockaddr*>(&local), &size) != 0) return std::nullopt;
    return ntohs(local.sin_port);
}

std::ptrdiff_t Send(SocketHandle handle, const void* data, std::size_t size) noexcept {
    return ::send(handle, static_cast<const char*>(data), SystemSize(size), 0);
}

std::ptrdiff_t Receive(SocketHandle handle, void* buffer, std::size_t size) noexcept {
    if (size == 0) return 0;
    return ::recv(handle, static_cast<char*>(buffer), SystemSize(size), 0);
}

std::ptrdiff_t SendDatagram(SocketHandle handle, const void* data, std::size_t size,
                            const SSocketAddress& to) noexcept {
    const sockaddr_in address = SystemAddress(to);
    return ::sendto(handle, static_cast<const char*>(data), SystemSize(size), 0,
                    reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

// A datagram that does not fit (WSAEMSGSIZE) and an ICMP port-unreachable for an earlier send
// (WSAECONNRESET) are failures of this receive only.
std::ptrdiff_t ReceiveDatagram(SocketHandle handle, void* buffer, std::size_t size) noexcept {
    return ::recvfrom(handle, static_cast<char*>(buffer), SystemSize(size), 0, nullptr, nullptr);
}

bool SetReceiveTimeout(SocketHandle handle, std::uint32_t milliseconds) noexcept {
    return SetOption(handle, SO_RCVTIMEO, &milliseconds, sizeof(milliseconds));
}

bool SetSendTimeout(SocketHandle handle, std::uint32_t milliseconds) noexcept {
    return SetOption(handle, SO_SNDTIMEO, &milliseconds, sizeof(milliseconds));
}

std::optional<std::int32_t> ReceiveBufferSize(SocketHandle handle) noexcept {
    std::int32_t bytes = 0;
    int size = sizeof(bytes);
    if (::getsockopt(handle, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<char*>(&bytes), &size) != 0) {
        return std::nullopt;
    }
    return bytes;
}

bool SetReceiveBufferSize(SocketHandle handle, std::int32_t bytes) noexcept {
    return SetOption(handle, SO_RCVBUF, &bytes, sizeof(bytes));
}

// Closing the handle would end the receive at once. But a thread that has read the field and not
// yet begun its receive would then receive on the next object with the same number, and the system
// soon reuses numbers. A shutdown does not end a receive on an unconnected socket here. Therefore
// the handle stays open until the thread has ended: first, later receives are made unable to block;
// then the one that may be blocked already is cancelled. In this order none can be missed.
void CancelReceives(SocketHandle handle) noexcept {
    SetBlocking(handle, false);
    ::CancelIoEx(reinterpret_cast<HANDLE>(handle), nullptr);
}

}  // namespace platform
