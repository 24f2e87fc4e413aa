/// Encodes pictures as lossless JPEG-LS (ITU-T T.87) in the form that the real cameras send.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "CameraSettings.h"

namespace korusim {

class CJpegLsEncoder {
   public:
    explicit CJpegLsEncoder(SPictureSize size) : pictureSize(size) {}

    /// Stamps a picture and returns it as a frame, valid until the next call: a head of 4 bytes,
    /// which here is the big-endian frame number, and the coded picture, in which the
    /// start-of-frame marker directly follows the start-of-image marker.
    [[nodiscard]] std::span<const std::uint8_t> Code(std::span<std::uint16_t> picture,
                                                     std::uint32_t number);

   private:
    SPictureSize pictureSize;
    std::vector<std::uint8_t> frame;
};

}  // namespace korusim
