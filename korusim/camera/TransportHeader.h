/// The Transport header of SETUP (RFC 2326, 12.39), limited to what RTP over UDP needs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korusim {

/// A pair of UDP ports, host order.
struct SPortPair {
    std::uint16_t rtp = 0;
    std::uint16_t rtcp = 0;
};

/// Returns the client's ports from the first offer of unicast RTP over UDP, or nothing.
[[nodiscard]] std::optional<SPortPair> ParseClientPorts(std::string_view transport);

/// Parses "a-b", or "a", which means a and the port above it.
[[nodiscard]] std::optional<SPortPair> ParsePortPair(std::string_view text);

/// Returns "rtp-rtcp".
[[nodiscard]] std::string PortPairText(SPortPair ports);

}  // namespace korusim
