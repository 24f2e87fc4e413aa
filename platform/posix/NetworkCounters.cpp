#include "NetworkCounters.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string_view>
#include <system_error>

#include "Socket.h"

namespace platform {
namespace {

std::optional<std::uint64_t> NumberIn(const std::string& file) {
    std::uint64_t number = 0;
    if (std::ifstream(file) >> number) return number;
    return std::nullopt;
}

std::optional<sockaddr_in> DottedAddress(const std::string& text, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (::inet_pton(AF_INET, text.c_str(), &address.sin_addr) != 1) return std::nullopt;
    return address;
}

int Connect(const CSocket& socket, const sockaddr_in& to) {
    return ::connect(static_cast<int>(socket.handle()), reinterpret_cast<const sockaddr*>(&to),
                     sizeof(to));
}

/// Returns the values of the line "Udp:" by name. Their order differs between kernels.
std::map<std::string, std::uint64_t> UdpValues() {
    std::map<std::string, std::uint64_t> values;
    std::ifstream table("/proc/net/snmp");
    std::string line;
    std::string below;
    // A line of names and a line of numbers.
    while (std::getline(table, line) && std::getline(table, below)) {
        if (!line.starts_with("Udp:")) continue;
        std::istringstream names(line.substr(4));
        std::istringstream numbers(below.substr(4));
        std::string name;
        std::uint64_t number = 0;
        while (names >> name && numbers >> number) values[name] = number;
    }
    return values;
}

std::optional<std::uint64_t> Find(const std::map<std::string, std::uint64_t>& values,
                                  const char* name) {
    const auto found = values.find(name);
    return found == values.end() ? std::nullopt : std::optional(found->second);
}

struct SBufferState {
    std::uint64_t size = 0;  // as the kernel counts it
    std::uint64_t used = 0;
};

/// Returns the receive buffer of a UDP socket; the size is 0 for any other descriptor.
SBufferState BufferOf(int descriptor) {
    int type = 0;
    socklen_t size = sizeof(type);
    if (::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) != 0 || type != SOCK_DGRAM) {
        return {};
    }
    std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
    size = sizeof(memory);
    if (::getsockopt(descriptor, SOL_SOCKET, SO_MEMINFO, memory.data(), &size) != 0) return {};
    return {memory[SK_MEMINFO_RCVBUF], memory[SK_MEMINFO_RMEM_ALLOC]};
}

EConnect ResultOf(int error) {
    switch (error) {
        case 0:
            return EConnect::Connected;
        case ECONNREFUSED:
            return EConnect::Refused;
        case ENETUNREACH:
        case EHOSTUNREACH:
        case EACCES:  // an address that this machine must not use, or a local firewall
        case EPERM:
            return EConnect::Unreachable;
        case ETIMEDOUT:
            return EConnect::NoResponse;
        default:
            return EConnect::Failed;
    }
}

}  // namespace

SUdpCounters UdpCounters() {
    const auto values = UdpValues();
    return {Find(values, "InDatagrams"), Find(values, "RcvbufErrors")};
}

SReceiveBuffers ReceiveBuffers() {
    SBufferState largest;
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end;
         !error && entry != end; entry.increment(error)) {
        const SBufferState state = BufferOf(std::atoi(entry->path().filename().c_str()));
        if (state.size > largest.size) largest = state;
    }
    SReceiveBuffers buffers{NumberIn("/proc/sys/net/core/rmem_default"),
                            NumberIn("/proc/sys/net/core/rmem_max"),
                            {},
                            {}};
    if (largest.size != 0) {
        // The kernel doubles what a program requests, as an allowance for its own overhead.
        buffers.granted = largest.size / 2;
        buffers.filled = static_cast<double>(largest.used) / static_cast<double>(largest.size);
    }
    return buffers;
}

std::optional<SRoute> RouteTo(const std::string& address) {
    const auto to = DottedAddress(address, 9);  // no packet is sent to that port
    const CSocket socket(OpenUdpSocket());
    if (!to || !socket.valid() || Connect(socket, *to) != 0) return std::nullopt;
    sockaddr_in local{};
    socklen_t size = sizeof(local);
    if (::getsockname(static_cast<int>(socket.handle()), reinterpret_cast<sockaddr*>(&local),
                      &size) != 0) {
        return std::nullopt;
    }
    char text[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &local.sin_addr, text, sizeof(text));
    SRoute route{text, {}};
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return route;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, ::freeifaddrs);
    for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET) continue;
        const auto& own = *reinterpret_cast<const sockaddr_in*>(each->ifa_addr);
        if (own.sin_addr.s_addr == local.sin_addr.s_addr) route.interfaceName = each->ifa_name;
    }
    return route;
}

SInterfaceCounters InterfaceCounters(const SRoute& route) {
    if (route.interfaceName.empty()) return {};
    SInterfaceCounters counters;
    std::ifstream table("/proc/net/dev");
    for (std::string line; std::getline(table, line);) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        if (line.substr(line.find_first_not_of(' '), colon - line.find_first_not_of(' ')) !=
            route.interfaceName) {
            continue;
        }
        std::istringstream numbers(line.substr(colon + 1));
        std::uint64_t bytes = 0;
        std::uint64_t packets = 0;
        if (numbers >> bytes >> packets) counters.received = packets;
    }
    // The column "drop" of that table also counts packets of protocols that nothing here uses.
    const std::string folder = "/sys/class/net/" + route.interfaceName + "/statistics/";
    const auto missed = NumberIn(folder + "rx_missed_errors");
    const auto overruns = NumberIn(folder + "rx_fifo_errors");
    if (missed && overruns) counters.dropped = *missed + *overruns;
    return counters;
}

EConnect TryConnect(const std::string& address, std::uint16_t port, std::uint32_t milliseconds) {
    const auto to = DottedAddress(address, port);
    const CSocket socket(OpenTcpSocket());
    if (!to || !socket.valid()) return EConnect::Failed;
    const int descriptor = static_cast<int>(socket.handle());
    if (::fcntl(descriptor, F_SETFL, O_NONBLOCK) != 0) return EConnect::Failed;
    if (Connect(socket, *to) == 0) return EConnect::Connected;
    if (errno != EINPROGRESS) return ResultOf(errno);
    pollfd state{descriptor, POLLOUT, 0};
    if (::poll(&state, 1, static_cast<int>(milliseconds)) != 1) return EConnect::NoResponse;
    int error = 0;
    socklen_t size = sizeof(error);
    if (::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) != 0) return EConnect::Failed;
    return ResultOf(error);
}

}  // namespace platform
