/// The RTP header (RFC 3550 section 5.1). A datagram is checked here, once; later code cannot read
/// past its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace qmx::cam {

/// One packet of the stream, in host byte order. The payload is a view into the datagram.
struct SRtpPacket {
    bool marker;  ///< ends a frame
    std::uint16_t sequence;
    std::uint32_t timestamp;
    std::uint32_t ssrc;
    std::span<const std::uint8_t> payload;  ///< may be empty; includes padding, if any
};

/// Shortest datagram that is accepted, in bytes: the fixed header and 8 more.
inline constexpr std::size_t rtpDatagramShortest = 20;

/// Parses a datagram. Returns nothing when it is too short or of another version, or when its CSRC
/// list or header extension would extend past its end. Payload type and sender are not checked:
/// every datagram that the socket receives is a packet of the stream.
[[nodiscard]] std::optional<SRtpPacket> ParseRtpPacket(
    std::span<const std::uint8_t> datagram) noexcept;

}  // namespace qmx::cam
