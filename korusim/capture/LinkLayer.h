/// The link layer of a captured frame: finds the network packet in it.
#pragma once

#include <cstdint>
#include <span>

namespace korusim {

inline constexpr std::uint16_t etherTypeIpv4 = 0x0800;
inline constexpr std::uint16_t etherTypeIpv6 = 0x86DD;

/// The content of a frame. The bytes point into the frame.
struct SLinkPayload {
    std::uint16_t etherType = 0;  ///< 0 if the frame is too short or of no use
    std::span<const std::uint8_t> bytes;
};

/// Returns true for the link types, as libpcap numbers them, that `ReadLinkLayer` knows: Ethernet,
/// Linux cooked capture in both versions, raw IP, and BSD loopback.
[[nodiscard]] bool IsKnownLinkType(int linkType) noexcept;

/// Skips the header of a frame, including VLAN tags.
[[nodiscard]] SLinkPayload ReadLinkLayer(int linkType, std::span<const std::uint8_t> frame);

}  // namespace korusim
