#include "Network.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace korusim {
namespace {

constexpr int listenBacklog = 16;
constexpr std::size_t receivePieceBytes = 4096;
/// Most bytes that may wait for a peer. One that lets more pile up does not read them.
constexpr std::size_t maxQueuedResponses = 256;
/// Datagrams per system call.
constexpr std::size_t outboxSlots = 64;
/// Send buffer in bytes; it has to hold a burst.
constexpr int udpSendBuffer = 4 << 20;

const sockaddr* Plain(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
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

SSocketResult OpenBound(int type, const std::string& address, std::uint16_t port) {
    CDescriptor socket(::socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_in local = MakeAddress(address, port);
    const int on = 1;
    // A simulator that is restarted at once must not fail because of its own closed connections.
    if (type == SOCK_STREAM && socket.valid()) {
        ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    }
    if (!socket.valid() || ::bind(socket.get(), Plain(local), sizeof(local)) != 0) {
        return {CDescriptor(), Failure("cannot bind", address, port)};
    }
    return {std::move(socket), {}};
}

}  // namespace

CDescriptor::~CDescriptor() {
    if (valid()) ::close(descriptor);
}

sockaddr_in MakeAddress(const std::string& address, std::uint16_t port) {
    sockaddr_in made{};
    made.sin_family = AF_INET;
    made.sin_port = htons(port);
    ::inet_pton(AF_INET, address.c_str(), &made.sin_addr);
    return made;
}

sockaddr_in WithPort(sockaddr_in address, std::uint16_t port) {
    address.sin_port = htons(port);
    return address;
}

bool SameAddress(const sockaddr_in& left, const sockaddr_in& right) {
    return left.sin_port == right.sin_port && left.sin_addr.s_addr == right.sin_addr.s_addr;
}

SSocketResult ListenTcp(const std::string& address, std::uint16_t port) {
    SSocketResult result = OpenBound(SOCK_STREAM, address, port);
    if (result.error.empty() && ::listen(result.socket.get(), listenBacklog) != 0) {
        result.error = Failure("cannot listen on", address, port);
    }
    return result;
}

SSocketResult OpenUdp(const std::string& address) {
    SSocketResult result = OpenBound(SOCK_DGRAM, address, 0);
    if (!result.error.empty()) return result;
    ::setsockopt(result.socket.get(), SOL_SOCKET, SO_SNDBUF, &udpSendBuffer, sizeof(udpSendBuffer));
    return result;
}

std::uint16_t LocalPort(const CDescriptor& socket) {
    sockaddr_in local{};
    socklen_t size = sizeof(local);
    ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&local), &size);
    return ntohs(local.sin_port);
}

std::optional<CPeer> Accept(const CDescriptor& listener) {
    sockaddr_in remote{};
    socklen_t size = sizeof(remote);
    CDescriptor accepted(::accept4(listener.get(), reinterpret_cast<sockaddr*>(&remote), &size,
                                   SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!accepted.valid()) return std::nullopt;
    // Each response leaves at once: pieces that are sent separately must stay separate.
    const int on = 1;
    ::setsockopt(accepted.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    return CPeer(std::move(accepted), remote);
}

std::optional<std::string> CPeer::Receive() {
    std::string bytes(receivePieceBytes, '\0');
    const ssize_t received = ::recv(socket.get(), bytes.data(), bytes.size(), 0);
    if (received == 0) return std::nullopt;
    if (received < 0) {
        if (errno != EAGAIN && errno != EINTR) return std::nullopt;
        return std::string();
    }
    bytes.resize(static_cast<std::size_t>(received));
    return bytes;
}

void CPeer::Queue(std::string bytes, TimePoint due) {
    if (!bytes.empty()) waiting.push_back({std::move(bytes), due});
}

bool CPeer::Flush(TimePoint now) {
    if (waiting.size() > maxQueuedResponses) return false;
    blocked = false;
    while (!waiting.empty() && waiting.front().due <= now) {
        std::string& bytes = waiting.front().bytes;
        const ssize_t sent = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EAGAIN && errno != EINTR) return false;
        bytes.erase(0, static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
        blocked = !bytes.empty();
        if (blocked) return true;
        waiting.pop_front();
    }
    return true;
}

std::optional<TimePoint> CPeer::nextDue() const {
    if (waiting.empty() || blocked) return std::nullopt;
    return waiting.front().due;
}

void COutbox::Aim(const CDescriptor& from, const sockaddr_in& to, std::size_t maxBytes) {
    socket = from.get();
    receiver = to;
    slotBytes = maxBytes;
    slots.resize(outboxSlots * slotBytes);
    sizes.clear();
    sizes.reserve(outboxSlots);
    messages.resize(outboxSlots);
    pieces.resize(outboxSlots);
}

void COutbox::Add(std::span<const std::uint8_t> datagram) {
    if (datagram.size() > slotBytes) return;
    std::memcpy(&slots[sizes.size() * slotBytes], datagram.data(), datagram.size());
    sizes.push_back(datagram.size());
    if (sizes.size() == outboxSlots) Flush();
}

void COutbox::Flush() {
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        pieces[i] = {&slots[i * slotBytes], sizes[i]};
        messages[i] = {};
        messages[i].msg_hdr.msg_name = &receiver;
        messages[i].msg_hdr.msg_namelen = sizeof(receiver);
        messages[i].msg_hdr.msg_iov = &pieces[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    for (std::size_t done = 0; done < sizes.size();) {
        const auto left = static_cast<unsigned>(sizes.size() - done);
        const int sent = ::sendmmsg(socket, &messages[done], left, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) ++refusedDatagrams;
        done += sent > 0 ? static_cast<std::size_t>(sent) : 1;
    }
    sizes.clear();
}

}  // namespace korusim
