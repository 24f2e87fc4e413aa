#include "Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

int Descriptor(SocketHandle handle) noexcept { return static_cast<int>(handle); }

SocketHandle OpenSocket(int type, int protocol) noexcept {
    const int descriptor = ::socket(AF_INET, type | SOCK_CLOEXEC, protocol);
    return descriptor < 0 ? invalidSocket : static_cast<SocketHandle>(descriptor);
}

sockaddr_in SystemAddress(const SSocketAddress& from) noexcept {
    sockaddr_in address{};
    address.sin_family = from.family;
    address.sin_port = from.port;
    address.sin_addr.s_addr = from.address;
    return address;
}

/// Waits for an event; a negative `limit` means none. Returns false when the limit has passed.
bool WaitFor(int descriptor, short events, std::chrono::milliseconds limit) noexcept {
    const Clock::time_point end = Clock::now() + limit;
    for (;;) {
        int wait = -1;
        if (limit.count() >= 0) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
            if (left.count() <= 0) return false;
            wait = static_cast<int>(left.count());
        }
        pollfd waiting{descriptor, events, 0};
        const int ready = ::poll(&waiting, 1, wait);
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
    }
}

/// Waits until a pending connection is established; false when it fails or the limit has passed.
bool ConnectionMade(int descriptor, std::chrono::milliseconds limit) noexcept {
    if (!WaitFor(descriptor, POLLOUT, limit)) return false;
    int error = 0;
    socklen_t size = sizeof(error);
    return ::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

/// Receives one datagram. The C library's function is a cancellation point, which costs two atomic
/// operations per packet; the system call itself is not. Sanitizers intercept the C library's.
ssize_t ReceiveFrom(int descriptor, void* buffer, std::size_t size, int flags) noexcept {
#if defined(KORU_SANITIZED)
    return ::recvfrom(descriptor, buffer, size, flags, nullptr, nullptr);
#else
    return ::syscall(SYS_recvfrom, descriptor, buffer, size, flags, nullptr, nullptr);
#endif
}

timeval SystemDuration(std::uint32_t milliseconds) noexcept {
    timeval duration{};
    duration.tv_sec = milliseconds / 1000;
    duration.tv_usec = static_cast<suseconds_t>(milliseconds % 1000) * 1000;
    return duration;
}

/// Returns the receive time-out of a socket; negative when there is none.
std::chrono::milliseconds ReceiveTimeout(int descriptor) noexcept {
    timeval limit{};
    socklen_t size = sizeof(limit);
    if (::getsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, &size) != 0 ||
        (limit.tv_sec == 0 && limit.tv_usec == 0)) {
        return std::chrono::milliseconds(-1);
    }
    return std::chrono::seconds(limit.tv_sec) +
           std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::microseconds(limit.tv_usec));
}

}  // namespace

std::uint16_t NetworkOrder(std::uint16_t value) noexcept { return htons(value); }

SSocketAddress MakeSocketAddress(std::uint32_t address, std::uint16_t port) noexcept {
    static_assert(familyIpv4 == AF_INET);
    return {familyIpv4, NetworkOrder(port), address};
}

std::optional<std::uint32_t> ParseIpv4(const char* text) noexcept {
    const in_addr_t address = ::inet_addr(text);
    if (address == INADDR_NONE) return std::nullopt;
    return address;
}

std::optional<std::uint32_t> ResolveIpv4(const char* text) noexcept {
    if (const auto address = ParseIpv4(text)) return address;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    // getaddrinfo and not gethostbyname: on Linux only the former is safe from several threads.
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
    if (size == 0 || ::gethostname(buffer, size) != 0) return false;
    return std::memchr(buffer, 0, size) != nullptr;  // a truncated name has no NUL
}

SocketHandle OpenTcpSocket() noexcept { return OpenSocket(SOCK_STREAM, 0); }
SocketHandle OpenUdpSocket() noexcept { return OpenSocket(SOCK_DGRAM, IPPROTO_UDP); }

void CloseSocket(SocketHandle handle) noexcept { ::close(Descriptor(handle)); }

bool ConnectSocket(SocketHandle handle, const SSocketAddress& to) noexcept {
    const sockaddr_in address = SystemAddress(to);
    const auto* const plain = reinterpret_cast<const sockaddr*>(&address);
    if (::connect(Descriptor(handle), plain, sizeof(address)) == 0) return true;
    if (errno != EINTR) return false;
    // Interrupted by a signal: the system continues to connect, and is asked for the result.
    return ConnectionMade(Descriptor(handle), std::chrono::milliseconds(-1));
}

bool ConnectWithTimeout(SocketHandle handle, const SSocketAddress& to,
                        std::uint32_t milliseconds) noexcept {
    const int descriptor = Descriptor(handle);
    const int flags = ::fcntl(descriptor, F_GETFL);
    if (flags < 0 || ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != 0) return false;
    const sockaddr_in address = SystemAddress(to);
    const auto* const plain = reinterpret_cast<const sockaddr*>(&address);
    const bool made = ::connect(descriptor, plain, sizeof(address)) == 0 ||
                      ((errno == EINPROGRESS || errno == EINTR) &&
                       ConnectionMade(descriptor, std::chrono::milliseconds(milliseconds)));
    return made && ::fcntl(descriptor, F_SETFL, flags) == 0;
}

bool BindToAnyPort(SocketHandle handle) noexcept {
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    return ::bind(Descriptor(handle), reinterpret_cast<const sockaddr*>(&any), sizeof(any)) == 0;
}

std::optional<std::uint16_t> LocalPort(SocketHandle handle) noexcept {
    sockaddr_in local{};
    socklen_t size = sizeof(local);
    if (::getsockname(Descriptor(handle), reinterpret_cast<sockaddr*>(&local), &size) != 0) {
        return std::nullopt;
    }
    return ntohs(local.sin_port);
}

std::ptrdiff_t Send(SocketHandle handle, const void* data, std::size_t size) noexcept {
    for (;;) {
        const ssize_t sent = ::send(Descriptor(handle), data, size, MSG_NOSIGNAL);
        if (sent >= 0 || errno != EINTR) return sent;
    }
}

std::ptrdiff_t Receive(SocketHandle handle, void* buffer, std::size_t size) noexcept {
    if (size == 0) return 0;
    const int descriptor = Descriptor(handle);
    const Clock::time_point begun = Clock::now();
    ssize_t received = ::recv(descriptor, buffer, size, 0);
    while (received < 0 && errno == EINTR) {
        // A signal must not end the receive, and repeated signals must not extend it.
        std::chrono::milliseconds left = ReceiveTimeout(descriptor);
        if (left.count() >= 0) {
            left -= std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun);
            if (left.count() < 0) left = std::chrono::milliseconds(0);
        }
        if (!WaitFor(descriptor, POLLIN, left)) return -1;
        received = ::recv(descriptor, buffer, size, 0);
    }
    return received;
}

std::ptrdiff_t SendDatagram(SocketHandle handle, const void* data, std::size_t size,
                            const SSocketAddress& to) noexcept {
    const sockaddr_in address = SystemAddress(to);
    return ::sendto(Descriptor(handle), data, size, MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

std::ptrdiff_t ReceiveDatagram(SocketHandle handle, void* buffer, std::size_t size) noexcept {
    for (;;) {
        // MSG_TRUNC returns the full size, so that a truncated datagram is not taken for a whole
        // one.
        const ssize_t received = ReceiveFrom(Descriptor(handle), buffer, size, MSG_TRUNC);
        if (received > static_cast<ssize_t>(size)) return -1;
        if (received >= 0 || errno != EINTR) return received;
    }
}

bool SetReceiveTimeout(SocketHandle handle, std::uint32_t milliseconds) noexcept {
    const timeval limit = SystemDuration(milliseconds);
    return ::setsockopt(Descriptor(handle), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) == 0;
}

bool SetSendTimeout(SocketHandle handle, std::uint32_t milliseconds) noexcept {
    const timeval limit = SystemDuration(milliseconds);
    return ::setsockopt(Descriptor(handle), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) == 0;
}

std::optional<std::int32_t> ReceiveBufferSize(SocketHandle handle) noexcept {
    int bytes = 0;
    socklen_t size = sizeof(bytes);
    if (::getsockopt(Descriptor(handle), SOL_SOCKET, SO_RCVBUF, &bytes, &size) != 0) {
        return std::nullopt;
    }
    return bytes;
}

bool SetReceiveBufferSize(SocketHandle handle, std::int32_t bytes) noexcept {
    const int descriptor = Descriptor(handle);
    // Linux doubles the value, for its own bookkeeping, and reports the doubled value.
    return ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes)) == 0 ||
           ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes)) == 0;
}

// For an unconnected UDP socket shutdown fails with ENOTCONN, and wakes its receivers all the same.
void CancelReceives(SocketHandle handle) noexcept { ::shutdown(Descriptor(handle), SHUT_RDWR); }

}  // namespace platform
