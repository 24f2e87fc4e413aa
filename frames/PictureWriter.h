/// Writes pictures as PNG files.
#pragma once

#include <filesystem>

#include "Palette.h"
#include "Picture.h"

namespace frames {

/// Writes a 16-bit grey PNG or, with a palette, an 8-bit colour PNG. Returns false if the file
/// cannot be written.
[[nodiscard]] bool WritePng(const std::filesystem::path& file, const SGreyPicture& picture,
                            const Palette* palette);
/// Writes an 8-bit colour PNG. Returns false if the file cannot be written.
[[nodiscard]] bool WritePng(const std::filesystem::path& file, SColourPicture picture);

}  // namespace frames
