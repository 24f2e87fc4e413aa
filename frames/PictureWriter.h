/// Converts frames to pictures and writes them as PNG files.
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
    std::vector<std::uint16_t> pixels;  ///< row by row
};

/// Converts a raw frame: 16-bit little-endian pixels in rows of `width`. The number of rows follows
/// from the length; a partial last row is filled with its last pixel. A frame without a complete
/// pixel gives an empty picture. The simulator's stamp is painted over.
[[nodiscard]] SGreyPicture RawPicture(std::span<const std::uint8_t> frame, std::uint32_t width);

/// Stretches the values of the picture to the full range, because it would otherwise be almost
/// black. Single hot and dead pixels do not count.
void StretchContrast(SGreyPicture& picture);

struct SColourPicture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> samples;  ///< red, green, blue of each pixel, row by row
};

/// Writes a 16-bit grey PNG or, with a palette, an 8-bit colour PNG. Returns false if the file
/// cannot be written.
[[nodiscard]] bool WritePng(const std::string& file, const SGreyPicture& picture,
                            const Palette* palette);
/// Writes an 8-bit colour PNG. Returns false if the file cannot be written.
[[nodiscard]] bool WritePng(const std::string& file, SColourPicture picture);

}  // namespace frames
