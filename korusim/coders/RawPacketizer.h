/// Splits a raw picture into RTP datagrams (RFC 3550). The payload is that of RFC 4175, except that
/// the length word counts pixels and the pixels are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "CameraSettings.h"
#include "RtpHeader.h"

namespace korusim {

class CRawPacketizer {
   public:
    /// `mtu` is the size of the largest datagram, which is exceeded if not even one line fits.
    CRawPacketizer(SPictureSize size, std::size_t mtu);

    [[nodiscard]] std::size_t CountPackets(std::span<const std::uint8_t>) const noexcept {
        return packets;
    }
    [[nodiscard]] std::size_t maxPacketBytes() const noexcept;
    /// Writes packet `index` of a picture into a buffer of `maxPacketBytes` and returns its size.
    [[nodiscard]] std::size_t Build(std::span<const std::uint8_t> picture, std::size_t index,
                                    const SPacketFields& fields, std::span<std::uint8_t> to) const;

   private:
    SPictureSize pictureSize;
    std::size_t linesPerPacket;
    std::size_t packets;
};

}  // namespace korusim
