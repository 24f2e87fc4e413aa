/// Codes pictures by lossless JPEG-LS (ITU-T T.87) the way these cameras send them.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "CameraSettings.h"

namespace korusim {

class CJpegLsEncoder {
   public:
    explicit CJpegLsEncoder(SPictureSize size) : pictureSize(size) {}

    /// Stamps a picture and gives it as a frame, good until the next call: 4 bytes of head, which
    /// here is the frame number, big-endian, and the coded picture with its start-of-frame marker
    /// right behind its start-of-image marker.
    [[nodiscard]] std::span<const std::uint8_t> Code(std::span<std::uint16_t> picture,
                                                     std::uint32_t number);

   private:
    SPictureSize pictureSize;
    std::vector<std::uint8_t> frame;
};

}  // namespace korusim
