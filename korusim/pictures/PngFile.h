/// Reads grey PNG files. The functions throw `std::runtime_error` with the reason of a failure,
/// which does not name the file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

#include "CameraSettings.h"

namespace korusim {

/// Returns the size of a picture with 8 or 16 bits of grey whose file is complete. Reads only the
/// heads of its chunks.
[[nodiscard]] SPictureSize ReadPngSize(const std::filesystem::path& file);
/// Decodes a picture of this size. Values of 8 bits are not scaled.
void ReadPng(const std::filesystem::path& file, SPictureSize size,
             std::span<std::uint16_t> picture);

}  // namespace korusim
