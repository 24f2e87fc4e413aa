#include <winsock2.h>
// After <winsock2.h>, because it would otherwise include the older <winsock.h>.
#include <iphlpapi.h>
#include <windows.h>
#include <ws2tcpip.h>

#include <string>

#include "NetworkCounters.h"
#include "Socket.h"

namespace platform {
namespace {

SOCKET SystemSocket(const CSocket& socket) { return static_cast<SOCKET>(socket.handle()); }

bool FillAddress(const std::string& text, std::uint16_t port, sockaddr_in& address) {
    address.sin_family = AF_INET;
    address.sin_port = ::htons(port);
    return ::inet_pton(AF_INET, text.c_str(), &address.sin_addr) == 1;
}

int Connect(const CSocket& socket, const sockaddr_in& to) {
    return ::connect(SystemSocket(socket), reinterpret_cast<const sockaddr*>(&to), sizeof(to));
}

EConnect ResultOf(int error) {
    switch (error) {
        case 0:
            return EConnect::Connected;
        case WSAECONNREFUSED:
            return EConnect::Refused;
        case WSAENETUNREACH:
        case WSAEHOSTUNREACH:
        case WSAEACCES:
        case WSAEADDRNOTAVAIL:
            return EConnect::Unreachable;
        case WSAETIMEDOUT:
            return EConnect::NoResponse;
        default:
            return EConnect::Failed;
    }
}

}  // namespace

SUdpCounters UdpCounters() {
    MIB_UDPSTATS statistics{};
    if (::GetUdpStatisticsEx(&statistics, AF_INET) != NO_ERROR) return {};
    return {statistics.dwInDatagrams, statistics.dwInErrors};
}

SReceiveBuffers ReceiveBuffers() {
    // The system has no limit, and does not show the buffers of the sockets of others.
    const CSocket socket(OpenUdpSocket());
    const auto size = socket.valid() ? ReceiveBufferSize(socket.handle()) : std::nullopt;
    if (!size || *size < 0) return {};
    return {static_cast<std::uint64_t>(*size), {}, {}, {}};
}

std::optional<SRoute> RouteTo(const std::string& address) {
    sockaddr_in to{};
    const CSocket socket(OpenUdpSocket());
    if (!FillAddress(address, 9, to) || !socket.valid() || Connect(socket, to) != 0) {
        return std::nullopt;
    }
    sockaddr_in local{};
    int size = sizeof(local);
    if (::getsockname(SystemSocket(socket), reinterpret_cast<sockaddr*>(&local), &size) != 0) {
        return std::nullopt;
    }
    char text[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &local.sin_addr, text, sizeof(text));
    SRoute route{text, {}};
    DWORD index = 0;
    if (::GetBestInterface(to.sin_addr.s_addr, &index) == NO_ERROR) {
        route.interfaceName = std::to_string(index);
    }
    return route;
}

SInterfaceCounters InterfaceCounters(const SRoute& route) {
    if (route.interfaceName.empty()) return {};
    MIB_IFROW row{};
    row.dwIndex = static_cast<DWORD>(std::stoul(route.interfaceName));
    if (::GetIfEntry(&row) != NO_ERROR) return {};
    return {std::uint64_t{row.dwInUcastPkts} + row.dwInNUcastPkts, row.dwInDiscards};
}

EConnect TryConnect(const std::string& address, std::uint16_t port, std::uint32_t milliseconds) {
    sockaddr_in to{};
    const CSocket socket(OpenTcpSocket());
    u_long nonBlocking = 1;
    if (!FillAddress(address, port, to) || !socket.valid() ||
        ::ioctlsocket(SystemSocket(socket), static_cast<long>(FIONBIO), &nonBlocking) != 0) {
        return EConnect::Failed;
    }
    if (Connect(socket, to) == 0) return EConnect::Connected;
    if (::WSAGetLastError() != WSAEWOULDBLOCK) return ResultOf(::WSAGetLastError());
    // Not WSAPoll, which before Windows 10 2004 does not report a failed connection.
    fd_set made{1, {SystemSocket(socket)}};
    fd_set failed = made;
    timeval limit{static_cast<long>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000 * 1000)};
    if (::select(0, nullptr, &made, &failed, &limit) != 1) return EConnect::NoResponse;
    int error = 0;
    int size = sizeof(error);
    if (::getsockopt(SystemSocket(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error),
                     &size) != 0) {
        return EConnect::Failed;
    }
    return ResultOf(error);
}

}  // namespace platform
