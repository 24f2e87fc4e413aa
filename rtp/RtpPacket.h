/// The RTP fixed header (RFC 3550 section 5.1). A datagram is checked here, once; behind this door
/// nothing can reach beyond it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace qmx::cam {

/// What a datagram of the stream says, in host order. The payload is a view into the datagram.
struct SRtpPacket {
    bool marker;  ///< ends a frame
    std::uint16_t sequence;
    std::uint32_t timestamp;
    std::uint32_t ssrc;
    std::span<const std::uint8_t> payload;  ///< may be empty; padding, if ever used, stays in it
};

/// Shortest datagram that is looked at, in bytes: the fixed header and 8 more.
inline constexpr std::size_t rtpDatagramShortest = 20;

/// Reads a datagram; nothing when it is too short, of another version, or when its CSRC list or its
/// header extension would end beyond it. Payload type and sender are not looked at: whatever comes
/// to the socket is a packet of the stream.
[[nodiscard]] std::optional<SRtpPacket> ParseRtpPacket(
    std::span<const std::uint8_t> datagram) noexcept;

}  // namespace qmx::cam
