#include "Sockets.h"

#include <stdexcept>
#if defined(_WIN32)
#include <winsock2.h>
#else
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#endif

namespace test {
namespace {

#if defined(_WIN32)
constexpr auto poll = WSAPoll;
using Native = SOCKET;
#else
using Native = int;
#endif

Native NativeOf(const platform::CSocket& socket) { return static_cast<Native>(socket.handle()); }

void Check(bool done, const char* what) {
    if (!done) throw std::runtime_error(what);
}

}  // namespace

platform::CSocket Listen(const char* address, std::uint16_t port) {
    platform::CSocket listener(platform::OpenTcpSocket());
    const Native native = NativeOf(listener);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    local.sin_addr.s_addr = platform::ParseIpv4(address).value();
#if !defined(_WIN32)  // where it would allow another program to use the same port
    const int on = 1;
    ::setsockopt(native, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
#endif
    Check(::bind(native, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) == 0, "bind");
    Check(::listen(native, 4) == 0, "listen");
    return listener;
}

platform::CSocket Accept(const platform::CSocket& listener) {
    const Native native = ::accept(NativeOf(listener), nullptr, nullptr);
    // On failure all bits are set on both systems, as in `invalidSocket`.
    return platform::CSocket(static_cast<platform::SocketHandle>(native));
}

bool Readable(const platform::CSocket& socket, int milliseconds) {
    pollfd waiting{};
    waiting.fd = NativeOf(socket);
    waiting.events = POLLIN;
    return poll(&waiting, 1, milliseconds) > 0;
}

std::pair<platform::CSocket, platform::CSocket> ConnectedPair() {
    const platform::CSocket listener = Listen("127.0.0.1", 0);
    platform::CSocket client(platform::OpenTcpSocket());
    Check(platform::ConnectSocket(client.handle(), platform::MakeSocketAddress(
                                                       *platform::ParseIpv4("127.0.0.1"),
                                                       *platform::LocalPort(listener.handle()))),
          "connect");
    return {std::move(client), Accept(listener)};
}

}  // namespace test
