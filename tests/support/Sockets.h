/// Socket functions for servers, which the plug-in does not need.
#pragma once

#include <cstdint>
#include <utility>

#include "Socket.h"

namespace test {

/// Listens on a TCP port of an address; port 0 lets the system pick one. Throws
/// `std::runtime_error` on failure.
platform::CSocket Listen(const char* address, std::uint16_t port);
/// Returns the next connection, or an invalid socket if it has gone already. Blocks.
platform::CSocket Accept(const platform::CSocket& listener);
/// Waits until a receive, or `Accept`, would not block. Returns false at the time limit.
bool Readable(const platform::CSocket& socket, int milliseconds);
/// Returns both ends of a stream connection. Throws `std::runtime_error` on failure.
std::pair<platform::CSocket, platform::CSocket> ConnectedPair();

}  // namespace test
