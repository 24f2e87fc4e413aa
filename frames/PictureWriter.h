/// Makes files that a person can look at of pictures.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "Palette.h"

namespace frames {

struct SGreyPicture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint16_t> pixels;  ///< line after line
};

/// The picture of a raw frame: 16-bit pixels, little-endian, in lines of `width`. A frame has as
/// many lines as it has bytes for, the last one filled up with the last pixel; one without a whole
/// pixel gives an empty picture. The simulator's stamp is painted over.
[[nodiscard]] SGreyPicture RawPicture(std::span<const std::uint8_t> frame, std::uint32_t width);

/// Spreads the values that the picture uses over the full range, so that it isn't all but black;
/// single hot and dead pixels don't count.
void StretchContrast(SGreyPicture& picture);

struct SColourPicture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> samples;  ///< red, green, blue of each pixel, line after line
};

/// Writes a 16-bit grey PNG, or an 8-bit colour one with a palette; false when the file can't be
/// written.
[[nodiscard]] bool WritePng(const std::string& file, const SGreyPicture& picture,
                            const Palette* palette);
/// Writes an 8-bit colour PNG; false when the file can't be written.
[[nodiscard]] bool WritePng(const std::string& file, SColourPicture picture);

}  // namespace frames
