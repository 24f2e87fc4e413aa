/// Pictures: the frames of every kind as pixels.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <variant>
#include <vector>

#include "qmx.h"

namespace frames {

struct SGreyPicture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint16_t> pixels;  ///< row by row
};

struct SColourPicture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> samples;  ///< red, green, blue of each pixel, row by row
};

using Picture = std::variant<SGreyPicture, SColourPicture>;

/// Converts a raw frame: 16-bit little-endian pixels in rows of `width`. The number of rows follows
/// from the length; a partial last row is filled with its last pixel. The picture of a
/// frame without a complete pixel is empty.
[[nodiscard]] SGreyPicture RawPicture(std::span<const std::uint8_t> frame, std::uint32_t width);
/// The same, into a picture whose memory is reused.
void ReadRawPicture(SGreyPicture& picture, std::span<const std::uint8_t> frame,
                    std::uint32_t width);
/// Decodes a frame of a pixel type: raw and JPEG-LS frames to grey pictures with the exact values,
/// JPEG frames to colour pictures. `width` is that of a raw frame, which does not contain its size.
/// Returns nothing if the frame contains no picture.
[[nodiscard]] std::optional<Picture> DecodePicture(std::span<const std::uint8_t> frame,
                                                   const qmx::SGuid& type, std::uint32_t width);

/// Returns the number of pixels at the start of the picture that appear to be the simulator's
/// stamp: 0 without its magic number. Does not verify the checksum, which would cost more than
/// showing the picture.
[[nodiscard]] std::size_t StampPixels(const SGreyPicture& picture);
/// Paints over the simulator's stamp, if there is one, because it would show as odd dots.
void HideStamp(SGreyPicture& picture);
/// Stretches the values of the picture to the full range, because it would otherwise be almost
/// black. Single hot and dead pixels do not count.
void StretchContrast(SGreyPicture& picture);

}  // namespace frames
