#include "NetworkState.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

#include "Socket.h"

namespace platform {
namespace {

std::string SystemText(int error) { return std::generic_category().message(error); }

CSocket Owned(int descriptor) {
    return CSocket(descriptor < 0 ? invalidSocket : static_cast<SocketHandle>(descriptor));
}

/// Returns true for the socket of an open connection to `to`.
bool IsOpenConnection(int descriptor, const sockaddr_in& to) {
    sockaddr_in peer{};
    socklen_t size = sizeof(peer);
    if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0) return false;
    if (peer.sin_family != AF_INET || peer.sin_port != to.sin_port ||
        peer.sin_addr.s_addr != to.sin_addr.s_addr) {
        return false;
    }
    pollfd state{descriptor, POLLRDHUP, 0};
    return ::poll(&state, 1, 0) == 0;
}

}  // namespace

bool StartSockets() noexcept { return true; }

void RaiseDescriptorLimit() noexcept {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

std::string DescriptorObstacle(std::size_t more) {
    std::vector<CSocket> held(more);
    for (CSocket& each : held) {
        each = Owned(::eventfd(0, EFD_CLOEXEC));
        if (each.valid()) continue;
        const int reason = errno;
        rlimit limit{};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        return "too few file descriptors: " + std::to_string(more) +
               " more are needed, and the limit of this process is " +
               std::to_string(limit.rlim_cur) + " in all (ulimit -n): " + SystemText(reason);
    }
    return {};
}

std::string MulticastDnsObstacle(std::size_t descriptors) {
    std::string obstacle = DescriptorObstacle(descriptors);
    if (!obstacle.empty()) return obstacle;
    const CSocket netlink = Owned(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_ROUTE));
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    local.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
    if (netlink.valid() && ::bind(static_cast<int>(netlink.handle()),
                                  reinterpret_cast<const sockaddr*>(&local), sizeof(local)) == 0) {
        return {};
    }
    return "the network interfaces cannot be watched (netlink): " + SystemText(errno);
}

std::optional<bool> IsConnectedTo(const std::string& address, std::uint16_t port) {
    sockaddr_in to{};
    to.sin_port = htons(port);
    if (::inet_pton(AF_INET, address.c_str(), &to.sin_addr) != 1) return std::nullopt;
    to.sin_family = AF_INET;
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end;
         !error && entry != end; entry.increment(error)) {
        if (IsOpenConnection(std::atoi(entry->path().filename().c_str()), to)) return true;
    }
    return error ? std::nullopt : std::optional(false);
}

}  // namespace platform
