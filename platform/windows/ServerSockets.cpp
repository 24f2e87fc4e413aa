#include "ServerSockets.h"

#include <winsock2.h>
// After <winsock2.h>, because it would otherwise include the older <winsock.h>.
#include <mswsock.h>
#include <windows.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "WideText.h"

namespace platform {
namespace {

constexpr int listenBacklog = 16;
/// Send buffer in bytes; it has to hold a burst.
constexpr int udpSendBuffer = 4 << 20;

SOCKET SystemSocket(const CSocket& socket) noexcept { return socket.handle(); }

void SetOption(const CSocket& socket, int level, int option, int value) noexcept {
    ::setsockopt(SystemSocket(socket), level, option, reinterpret_cast<const char*>(&value),
                 sizeof(value));
}

void StopBlocking(const CSocket& socket) noexcept {
    u_long nonBlocking = 1;
    ::ioctlsocket(SystemSocket(socket), static_cast<long>(FIONBIO), &nonBlocking);
}

std::string Failure(const char* what, const std::string& address, std::uint16_t port) {
    const int reason = ::WSAGetLastError();
    std::string text = std::string(what) + " " + address;
    if (port != 0) text += ":" + std::to_string(port);
    text += ": " + SystemErrorText(static_cast<DWORD>(reason));
    if (reason == WSAEADDRNOTAVAIL) text += " (no interface of this machine has that address)";
    if (reason == WSAEADDRINUSE || reason == WSAEACCES) text += " (is another simulator running?)";
    return text;
}

SServerSocket OpenBound(SocketHandle opened, const std::string& address, std::uint16_t port) {
    CSocket socket(opened);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    ::inet_pton(AF_INET, address.c_str(), &local.sin_addr);
    // Without SO_REUSEADDR, which here would let two processes share the port.
    if (!socket.valid() || ::bind(SystemSocket(socket), reinterpret_cast<const sockaddr*>(&local),
                                  sizeof(local)) != 0) {
        return {CSocket(), Failure("cannot bind", address, port)};
    }
    StopBlocking(socket);
    return {std::move(socket), {}};
}

}  // namespace

SServerSocket ListenTcp(const std::string& address, std::uint16_t port) {
    SServerSocket result = OpenBound(OpenTcpSocket(), address, port);
    if (result.error.empty() && ::listen(SystemSocket(result.socket), listenBacklog) != 0) {
        result.error = Failure("cannot listen on", address, port);
    }
    return result;
}

SServerSocket BindUdp(const std::string& address) {
    SServerSocket result = OpenBound(OpenUdpSocket(), address, 0);
    if (!result.error.empty()) return result;
    SetOption(result.socket, SOL_SOCKET, SO_SNDBUF, udpSendBuffer);
    // Otherwise a receiver that is gone makes the next receive fail.
    BOOL off = FALSE;
    DWORD returned = 0;
    ::WSAIoctl(SystemSocket(result.socket), SIO_UDP_CONNRESET, &off, sizeof(off), nullptr, 0,
               &returned, nullptr, nullptr);
    return result;
}

SAccepted Accept(const CSocket& listener) {
    sockaddr_in remote{};
    int size = sizeof(remote);
    SAccepted accepted;
    accepted.socket.Reset(
        ::accept(SystemSocket(listener), reinterpret_cast<sockaddr*>(&remote), &size));
    accepted.lacksDescriptor = !accepted.socket.valid() && ::WSAGetLastError() == WSAEMFILE;
    if (!accepted.socket.valid()) return accepted;
    accepted.remote = {familyIpv4, remote.sin_port, remote.sin_addr.s_addr};
    StopBlocking(accepted.socket);
    SetOption(accepted.socket, IPPROTO_TCP, TCP_NODELAY, 1);
    return accepted;
}

std::optional<std::size_t> ReceiveWaiting(const CSocket& connection, std::span<char> buffer) {
    const int received =
        ::recv(SystemSocket(connection), buffer.data(), static_cast<int>(buffer.size()), 0);
    if (received > 0) return static_cast<std::size_t>(received);
    if (received < 0 && ::WSAGetLastError() == WSAEWOULDBLOCK) return 0;
    return std::nullopt;
}

std::optional<std::size_t> SendFitting(const CSocket& connection, std::span<const char> bytes) {
    const int sent =
        ::send(SystemSocket(connection), bytes.data(), static_cast<int>(bytes.size()), 0);
    if (sent >= 0) return static_cast<std::size_t>(sent);
    if (::WSAGetLastError() == WSAEWOULDBLOCK) return 0;
    return std::nullopt;
}

std::optional<std::size_t> ReceiveDatagramFrom(const CSocket& socket,
                                               std::span<std::uint8_t> buffer,
                                               SSocketAddress& from) {
    sockaddr_in sender{};
    int size = sizeof(sender);
    const int received =
        ::recvfrom(SystemSocket(socket), reinterpret_cast<char*>(buffer.data()),
                   static_cast<int>(buffer.size()), 0, reinterpret_cast<sockaddr*>(&sender), &size);
    if (received < 0 && ::WSAGetLastError() != WSAEMSGSIZE) return std::nullopt;
    from = {familyIpv4, sender.sin_port, sender.sin_addr.s_addr};
    return received < 0 ? buffer.size() : static_cast<std::size_t>(received);
}

// That of a precise timer is 0.5 ms, and Wine's 1 ms.
constexpr std::chrono::nanoseconds shortestWait{1'000'000};

/// WSAPoll waits for whole milliseconds, and often for 16 of them. The wait therefore uses an event
/// for all sockets and a timer for the limit.
struct CSocketWaiter::SState {
    HANDLE wake = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE sockets = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE timer = NewTimer();
    std::vector<SWatchedSocket> selected;
    bool selectAgain = true;

    SState() = default;
    SState(const SState&) = delete;
    SState& operator=(const SState&) = delete;
    ~SState() {
        for (const HANDLE each : {wake, sockets, timer}) {
            if (each != nullptr) ::CloseHandle(each);
        }
    }
    void Select(std::span<const SWatchedSocket> watched);
    [[nodiscard]] DWORD WaitFor(std::optional<std::chrono::nanoseconds> limit) const;

   private:
    static HANDLE NewTimer() {
        // Exists from Windows 10 1803 on. Without it the precision is that of the system's clock
        // interrupt.
        constexpr DWORD highResolution = 2;  // CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
        const HANDLE precise =
            ::CreateWaitableTimerExW(nullptr, nullptr, highResolution, TIMER_ALL_ACCESS);
        return precise != nullptr ? precise
                                  : ::CreateWaitableTimerExW(nullptr, nullptr, 0, TIMER_ALL_ACCESS);
    }
};

/// Connects the sockets to the event. The system sets it at once if a socket is ready already.
/// Without a new selection it would not report again what it has reported before.
void CSocketWaiter::SState::Select(std::span<const SWatchedSocket> watched) {
    const auto same = [](const SWatchedSocket& left, const SWatchedSocket& right) {
        return left.socket == right.socket && left.toRead == right.toRead &&
               left.toWrite == right.toWrite;
    };
    if (!selectAgain && std::ranges::equal(watched, selected, same)) return;
    for (const SWatchedSocket& each : watched) {
        if (each.socket == invalidSocket) continue;
        const long read = each.toRead ? FD_READ | FD_ACCEPT | FD_CLOSE : 0;
        const long write = each.toWrite ? FD_WRITE | FD_CLOSE : 0;
        ::WSAEventSelect(each.socket, sockets, read | write);
    }
    selected.assign(watched.begin(), watched.end());
    selectAgain = false;
}

DWORD CSocketWaiter::SState::WaitFor(std::optional<std::chrono::nanoseconds> limit) const {
    const HANDLE handles[] = {wake, sockets, timer};
    constexpr DWORD withoutTimer = 2;
    constexpr DWORD withTimer = 3;
    if (!limit) return ::WaitForMultipleObjects(withoutTimer, handles, FALSE, INFINITE);
    LARGE_INTEGER due;
    due.QuadPart = -(limit->count() / 100);  // in units of 100 ns, negative from now on
    if (due.QuadPart >= 0 || ::SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE) == 0) {
        return ::WaitForMultipleObjects(withoutTimer, handles, FALSE, 0);
    }
    return ::WaitForMultipleObjects(withTimer, handles, FALSE, INFINITE);
}

CSocketWaiter::CSocketWaiter() : state(std::make_unique<SState>()) {}
CSocketWaiter::~CSocketWaiter() = default;

bool CSocketWaiter::valid() const noexcept {
    return state->wake != nullptr && state->sockets != nullptr && state->timer != nullptr;
}

void CSocketWaiter::Wake() noexcept { ::SetEvent(state->wake); }

void CSocketWaiter::Wait(std::span<SWatchedSocket> sockets,
                         std::optional<std::chrono::nanoseconds> limit) {
    state->Select(sockets);
    const bool ready = state->WaitFor(limit) == WAIT_OBJECT_0 + 1;
    state->selectAgain = ready;
    for (SWatchedSocket& each : sockets) {
        each.ready = ready && each.socket != invalidSocket && (each.toRead || each.toWrite);
    }
}

struct CDatagramBatch::SState {
    SOCKET socket = INVALID_SOCKET;
    sockaddr_in receiver{};
    std::size_t maxBytes = 0;
    std::uint64_t refusedDatagrams = 0;
};

CDatagramBatch::CDatagramBatch() : state(std::make_unique<SState>()) {}
CDatagramBatch::~CDatagramBatch() = default;

void CDatagramBatch::Aim(const CSocket& from, const SSocketAddress& to, std::size_t maxBytes) {
    state->socket = SystemSocket(from);
    state->receiver.sin_family = AF_INET;
    state->receiver.sin_port = to.port;
    state->receiver.sin_addr.s_addr = to.address;
    state->maxBytes = maxBytes;
}

// The system has no call for several datagrams of different sizes, so that each is sent at once.
void CDatagramBatch::Add(std::span<const std::uint8_t> datagram) {
    if (datagram.size() > state->maxBytes) return;
    const int sent =
        ::sendto(state->socket, reinterpret_cast<const char*>(datagram.data()),
                 static_cast<int>(datagram.size()), 0,
                 reinterpret_cast<const sockaddr*>(&state->receiver), sizeof(state->receiver));
    if (sent < 0) ++state->refusedDatagrams;
}

void CDatagramBatch::Flush() {}

std::uint64_t CDatagramBatch::refused() const noexcept { return state->refusedDatagrams; }

}  // namespace platform
