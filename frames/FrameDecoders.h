/// Decodes the coded kinds of frames. A frame comes off the network: whatever is in it, the answer
/// is a picture or none.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace frames {

/// The raw frame that a JPEG-LS one codes: 16-bit little-endian pixels, line after line.
struct SDecodedRaw {
    std::uint32_t width = 0;
    std::vector<std::uint8_t> bytes;
};

/// Decodes a JPEG-LS frame with its 4 bytes of head. None unless all of it is in order and it has
/// one component.
[[nodiscard]] std::optional<SDecodedRaw> DecodeJpegLs(std::span<const std::uint8_t> frame);

enum class EJpegForm {
    Luminance,  ///< one sample for each pixel
    Colour,     ///< red, green, blue
};

struct SDecodedJpeg {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> samples;
    /// The decoder had nothing to complain of, and nothing follows the picture. JPEG decoders go on
    /// somehow where data is missing or wrong.
    bool intact = false;
};

/// Decodes a JPEG frame; none when there is no picture at all.
[[nodiscard]] std::optional<SDecodedJpeg> DecodeJpeg(std::span<const std::uint8_t> frame,
                                                     EJpegForm form);

}  // namespace frames
