/// Cuts a raw picture into RTP datagrams (RFC 3550) whose payload is like that of RFC 4175, but for
/// the length word, which counts pixels, and the pixels, which are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "CameraSettings.h"

namespace korusim {

inline constexpr std::size_t rtpHeaderBytes = 12;

/// What the stream says about a packet. The sequence counter's low half is RTP's sequence number.
struct SPacketFields {
    std::uint8_t payloadType = 0;
    std::uint32_t sequence = 0;
    std::uint32_t timestamp = 0;
    std::uint32_t ssrc = 0;
};

/// Writes the 12 bytes of an RTP header with neither padding, extension nor sources.
///
///      0                   1                   2                   3
///     |V=2|P|X|  CC   |M|     PT      |       sequence number         |
///     |                           timestamp                           |
///     |                             SSRC                              |
void WriteRtpHeader(std::uint8_t* to, const SPacketFields& fields, bool marker);

class CRawPacketizer {
   public:
    /// `mtu` is the largest datagram; it gives way where not even one line fits.
    CRawPacketizer(SPictureSize size, std::size_t mtu);

    [[nodiscard]] std::size_t packetsPerFrame() const noexcept { return packets; }
    [[nodiscard]] std::size_t maxPacketBytes() const noexcept;
    /// Writes packet `index` of a picture into a buffer of `maxPacketBytes`; gives its size.
    [[nodiscard]] std::size_t Build(std::span<const std::uint8_t> picture, std::size_t index,
                                    const SPacketFields& fields, std::span<std::uint8_t> to) const;

   private:
    SPictureSize pictureSize;
    std::size_t linesPerPacket;
    std::size_t packets;
};

}  // namespace korusim
