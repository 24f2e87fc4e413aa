/// Encodes pictures as baseline JPEG in the form that RFC 2435 transports: false colours, the
/// standard's typical Huffman tables, and no headers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "CameraSettings.h"
#include "PictureSource.h"

namespace korusim {

/// The quantisation tables of luminance and chrominance, each in the byte order of a DQT segment.
using JpegTables = std::array<std::uint8_t, 128>;

/// Returns the tables of an RTP quality. Up to 99 they are the standard's typical ones (T.81, K.1
/// and K.2), scaled as in RFC 2435 appendix A. Their entries stay in row order, as with the real
/// cameras: a decoder reads a DQT segment in zigzag order and so assigns most of them to other
/// coefficients than the standard intends. From 128 on the tables are unlike any others, which
/// exposes a receiver that does not use those in the packet.
[[nodiscard]] JpegTables MakeJpegTables(std::uint8_t quality);

class CJpegEncoder {
   public:
    CJpegEncoder(SPictureSize size, const SJpegSettings& settings, SGreyRange range);
    CJpegEncoder(CJpegEncoder&&) noexcept;
    CJpegEncoder& operator=(CJpegEncoder&&) noexcept;
    ~CJpegEncoder();

    /// Colours a picture by the scale of the range, stamps it and returns its entropy-coded data
    /// including the end-of-image marker. The data is valid until the next call. The argument is
    /// not changed.
    [[nodiscard]] std::span<const std::uint8_t> Code(std::span<std::uint16_t> picture,
                                                     std::uint32_t number);

    struct SState;

   private:
    std::unique_ptr<SState> state;
};

}  // namespace korusim
