/// Decodes coded frames. Frames come from the network and may contain anything: the result is a
/// picture or nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace frames {

/// The decoded picture of a JPEG-LS frame: 16-bit little-endian pixels, row by row.
struct SDecodedRaw {
    std::uint32_t width = 0;
    std::vector<std::uint8_t> bytes;
};

/// Decodes a JPEG-LS frame with its head of 4 bytes. Returns nothing if any of it is invalid or it
/// has more than one component.
[[nodiscard]] std::optional<SDecodedRaw> DecodeJpegLs(std::span<const std::uint8_t> frame);

enum class EJpegForm {
    Luminance,  ///< one sample per pixel
    Colour,     ///< three samples per pixel: red, green, blue
};

struct SDecodedJpeg {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> samples;
    /// True if the decoder found no error and nothing follows the picture. JPEG decoders continue
    /// where data is missing or wrong.
    bool intact = false;
};

/// Decodes a JPEG frame. Returns nothing if it contains no picture.
[[nodiscard]] std::optional<SDecodedJpeg> DecodeJpeg(std::span<const std::uint8_t> frame,
                                                     EJpegForm form);

}  // namespace frames
