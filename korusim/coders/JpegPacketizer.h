/// Splits the entropy-coded data of a JPEG picture into RTP datagrams (RFC 2435).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "CameraSettings.h"
#include "JpegEncoder.h"
#include "RtpHeader.h"

namespace korusim {

class CJpegPacketizer {
   public:
    /// `mtu` is the size of the largest datagram, which is exceeded if not even the headers fit.
    CJpegPacketizer(SPictureSize size, const SJpegSettings& settings, std::size_t mtu);

    [[nodiscard]] std::size_t CountPackets(std::span<const std::uint8_t> data) const noexcept;
    [[nodiscard]] std::size_t maxPacketBytes() const noexcept;
    /// Writes packet `index` of a picture into a buffer of `maxPacketBytes` and returns its size.
    [[nodiscard]] std::size_t Build(std::span<const std::uint8_t> data, std::size_t index,
                                    const SPacketFields& fields, std::span<std::uint8_t> to) const;

   private:
    [[nodiscard]] std::size_t HeaderBytes(std::size_t index) const noexcept;
    /// Returns the offset at which the data of a packet begins if there is enough data.
    [[nodiscard]] std::size_t OffsetOf(std::size_t index) const noexcept;
    void WriteHeaders(std::uint8_t* to, std::size_t offset) const;

    SPictureSize pictureSize;
    SJpegSettings jpeg;
    JpegTables tables;
    std::size_t firstRoom;  // bytes of data in a picture's first packet
    std::size_t room;       // bytes of data in any other packet
};

}  // namespace korusim
