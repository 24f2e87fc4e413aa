#include "ServerSockets.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace platform {
namespace {

constexpr int listenBacklog = 16;
/// Send buffer in bytes; it has to hold a burst.
constexpr int udpSendBuffer = 4 << 20;
/// Datagrams per system call.
constexpr std::size_t batchSlots = 64;

int Descriptor(const CSocket& socket) noexcept { return static_cast<int>(socket.handle()); }

CSocket Owned(int descriptor) {
    return CSocket(descriptor < 0 ? invalidSocket : static_cast<SocketHandle>(descriptor));
}

sockaddr_in SystemAddress(const SSocketAddress& from) noexcept {
    sockaddr_in address{};
    address.sin_family = from.family;
    address.sin_port = from.port;
    address.sin_addr.s_addr = from.address;
    return address;
}

SSocketAddress PortableAddress(const sockaddr_in& from) noexcept {
    return {from.sin_family, from.sin_port, from.sin_addr.s_addr};
}

std::string Failure(const char* what, const std::string& address, std::uint16_t port) {
    const int reason = errno;
    std::string text = std::string(what) + " " + address;
    if (port != 0) text += ":" + std::to_string(port);
    text += ": " + std::string(std::strerror(reason));
    if (reason == EACCES)
        text += " (ports below 1024 need root or a network namespace of your own)";
    if (reason == EADDRNOTAVAIL) text += " (no interface of this machine has that address)";
    if (reason == EADDRINUSE) text += " (is another simulator running?)";
    return text;
}

SServerSocket OpenBound(int type, const std::string& address, std::uint16_t port) {
    CSocket socket = Owned(::socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    ::inet_pton(AF_INET, address.c_str(), &local.sin_addr);
    const int on = 1;
    if (type == SOCK_STREAM && socket.valid()) {
        ::setsockopt(Descriptor(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    }
    if (!socket.valid() ||
        ::bind(Descriptor(socket), reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0) {
        return {CSocket(), Failure("cannot bind", address, port)};
    }
    return {std::move(socket), {}};
}

}  // namespace

SServerSocket ListenTcp(const std::string& address, std::uint16_t port) {
    SServerSocket result = OpenBound(SOCK_STREAM, address, port);
    if (result.error.empty() && ::listen(Descriptor(result.socket), listenBacklog) != 0) {
        result.error = Failure("cannot listen on", address, port);
    }
    return result;
}

SServerSocket BindUdp(const std::string& address) {
    SServerSocket result = OpenBound(SOCK_DGRAM, address, 0);
    if (!result.error.empty()) return result;
    ::setsockopt(Descriptor(result.socket), SOL_SOCKET, SO_SNDBUF, &udpSendBuffer,
                 sizeof(udpSendBuffer));
    return result;
}

SAccepted Accept(const CSocket& listener) {
    sockaddr_in remote{};
    socklen_t size = sizeof(remote);
    SAccepted accepted;
    accepted.socket = Owned(::accept4(Descriptor(listener), reinterpret_cast<sockaddr*>(&remote),
                                      &size, SOCK_CLOEXEC | SOCK_NONBLOCK));
    accepted.lacksDescriptor = !accepted.socket.valid() && (errno == EMFILE || errno == ENFILE);
    if (!accepted.socket.valid()) return accepted;
    accepted.remote = PortableAddress(remote);
    const int on = 1;
    ::setsockopt(Descriptor(accepted.socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    return accepted;
}

std::optional<std::size_t> ReceiveWaiting(const CSocket& connection, std::span<char> buffer) {
    const ssize_t received = ::recv(Descriptor(connection), buffer.data(), buffer.size(), 0);
    if (received > 0) return static_cast<std::size_t>(received);
    if (received < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
    return std::nullopt;
}

std::optional<std::size_t> SendFitting(const CSocket& connection, std::span<const char> bytes) {
    const ssize_t sent = ::send(Descriptor(connection), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent >= 0) return static_cast<std::size_t>(sent);
    if (errno == EAGAIN || errno == EINTR) return 0;
    return std::nullopt;
}

std::optional<std::size_t> ReceiveDatagramFrom(const CSocket& socket,
                                               std::span<std::uint8_t> buffer,
                                               SSocketAddress& from) {
    sockaddr_in sender{};
    socklen_t size = sizeof(sender);
    const ssize_t received = ::recvfrom(Descriptor(socket), buffer.data(), buffer.size(), 0,
                                        reinterpret_cast<sockaddr*>(&sender), &size);
    if (received < 0) return std::nullopt;
    from = PortableAddress(sender);
    return static_cast<std::size_t>(received);
}

constexpr std::chrono::nanoseconds shortestWait{50'000};

struct CSocketWaiter::SState {
    CSocket wake = Owned(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    std::vector<pollfd> waiting;
};

CSocketWaiter::CSocketWaiter() : state(std::make_unique<SState>()) {}
CSocketWaiter::~CSocketWaiter() = default;

bool CSocketWaiter::valid() const noexcept { return state->wake.valid(); }

void CSocketWaiter::Wake() noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(Descriptor(state->wake), &one, sizeof(one));
}

void CSocketWaiter::Wait(std::span<SWatchedSocket> sockets,
                         std::optional<std::chrono::nanoseconds> limit) {
    std::vector<pollfd>& waiting = state->waiting;
    waiting.assign(1, {Descriptor(state->wake), POLLIN, 0});
    for (const SWatchedSocket& each : sockets) {
        const int events = (each.toRead ? POLLIN : 0) | (each.toWrite ? POLLOUT : 0);
        // `poll` ignores a negative descriptor, such as that of an invalid socket.
        waiting.push_back({static_cast<int>(each.socket), static_cast<short>(events), 0});
    }
    timespec duration{};
    if (limit) {
        constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
        const auto left = std::max<std::int64_t>(limit->count(), 0);
        duration.tv_sec = left / nanosecondsPerSecond;
        duration.tv_nsec = left % nanosecondsPerSecond;
    }
    ::ppoll(waiting.data(), waiting.size(), limit ? &duration : nullptr, nullptr);
    for (std::size_t i = 0; i < sockets.size(); ++i) sockets[i].ready = waiting[i + 1].revents != 0;
}

struct CDatagramBatch::SState {
    int socket = -1;
    sockaddr_in receiver{};
    std::size_t slotBytes = 0;
    std::vector<std::uint8_t> slots;
    std::vector<std::size_t> sizes;
    std::vector<mmsghdr> messages;
    std::vector<iovec> pieces;
    std::uint64_t refusedDatagrams = 0;
};

CDatagramBatch::CDatagramBatch() : state(std::make_unique<SState>()) {}
CDatagramBatch::~CDatagramBatch() = default;

void CDatagramBatch::Aim(const CSocket& from, const SSocketAddress& to, std::size_t maxBytes) {
    state->socket = Descriptor(from);
    state->receiver = SystemAddress(to);
    state->slotBytes = maxBytes;
    state->slots.resize(batchSlots * maxBytes);
    state->sizes.clear();
    state->sizes.reserve(batchSlots);
    state->messages.resize(batchSlots);
    state->pieces.resize(batchSlots);
}

void CDatagramBatch::Add(std::span<const std::uint8_t> datagram) {
    SState& batch = *state;
    if (datagram.size() > batch.slotBytes) return;
    std::memcpy(&batch.slots[batch.sizes.size() * batch.slotBytes], datagram.data(),
                datagram.size());
    batch.sizes.push_back(datagram.size());
    if (batch.sizes.size() == batchSlots) Flush();
}

void CDatagramBatch::Flush() {
    SState& batch = *state;
    for (std::size_t i = 0; i < batch.sizes.size(); ++i) {
        batch.pieces[i] = {&batch.slots[i * batch.slotBytes], batch.sizes[i]};
        batch.messages[i] = {};
        batch.messages[i].msg_hdr.msg_name = &batch.receiver;
        batch.messages[i].msg_hdr.msg_namelen = sizeof(batch.receiver);
        batch.messages[i].msg_hdr.msg_iov = &batch.pieces[i];
        batch.messages[i].msg_hdr.msg_iovlen = 1;
    }
    for (std::size_t done = 0; done < batch.sizes.size();) {
        const auto left = static_cast<unsigned>(batch.sizes.size() - done);
        const int sent = ::sendmmsg(batch.socket, &batch.messages[done], left, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) ++batch.refusedDatagrams;
        done += sent > 0 ? static_cast<std::size_t>(sent) : 1;
    }
    batch.sizes.clear();
}

std::uint64_t CDatagramBatch::refused() const noexcept { return state->refusedDatagrams; }

}  // namespace platform
