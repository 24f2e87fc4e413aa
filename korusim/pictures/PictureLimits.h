/// The sizes of pictures that a camera can have.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "CameraSettings.h"

namespace korusim {

/// Narrower pictures cannot hold the frame stamp; no camera has larger ones.
inline constexpr std::uint32_t minSide = 8;
inline constexpr std::uint32_t maxSide = 4096;

[[nodiscard]] inline std::string SizeText(SPictureSize size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

/// Returns the size of a picture from a file. Throws `std::runtime_error` if it is not within the
/// limits.
[[nodiscard]] inline SPictureSize CheckPictureSize(std::uint32_t width, std::uint32_t height) {
    const auto within = [](std::uint32_t side) { return side >= minSide && side <= maxSide; };
    if (within(width) && within(height)) {
        return {static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height)};
    }
    throw std::runtime_error("the picture has " + std::to_string(width) + "x" +
                             std::to_string(height) + " pixels; each side must have " +
                             std::to_string(minSide) + " to " + std::to_string(maxSide));
}

}  // namespace korusim
