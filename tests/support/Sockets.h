/// What a peer needs of sockets beyond what the plug-in does: it listens.
#pragma once

#include <cstdint>
#include <utility>

#include "Socket.h"

namespace test {

/// Listens on a TCP port of an address; port 0 lets the system pick one. Raises
/// `std::runtime_error` when it can't.
platform::CSocket Listen(const char* address, std::uint16_t port);
/// The next connection; blocks. None when it has gone again by then.
platform::CSocket Accept(const platform::CSocket& listener);
/// True as soon as a receive, or `Accept`, won't block; false when it would for so long.
bool Readable(const platform::CSocket& socket, int milliseconds);
/// Both ends of a stream connection. Raises `std::runtime_error` when there is none to be had.
std::pair<platform::CSocket, platform::CSocket> ConnectedPair();

}  // namespace test
