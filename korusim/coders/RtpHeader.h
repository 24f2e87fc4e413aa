/// The fixed header of an RTP datagram (RFC 3550, 5.1).
#pragma once

#include <cstddef>
#include <cstdint>

#include "BigEndian.h"

namespace korusim {

inline constexpr std::size_t rtpHeaderBytes = 12;

/// The fields of a packet. The low half of the sequence counter is RTP's sequence number.
struct SPacketFields {
    std::uint8_t payloadType = 0;
    std::uint32_t sequence = 0;
    std::uint32_t timestamp = 0;
    std::uint32_t ssrc = 0;
};

/// Writes the 12 bytes of an RTP header without padding, extension or contributing sources.
///
///      0                   1                   2                   3
///     |V=2|P|X|  CC   |M|     PT      |       sequence number         |
///     |                           timestamp                           |
///     |                             SSRC                              |
inline void WriteRtpHeader(std::uint8_t* to, const SPacketFields& fields, bool marker) {
    constexpr std::uint8_t version2 = 0x80;
    constexpr unsigned markerBit = 0x80;
    to[0] = version2;
    to[1] = static_cast<std::uint8_t>(fields.payloadType | (marker ? markerBit : 0U));
    bigendian::Put16(to + 2, fields.sequence & 0xFFFF);
    bigendian::Put32(to + 4, fields.timestamp);
    bigendian::Put32(to + 8, fields.ssrc);
}

}  // namespace korusim
