/// Codes pictures by baseline JPEG in the form that RFC 2435 carries: false colours, the standard's
/// typical Huffman tables, and no headers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "CameraSettings.h"

namespace korusim {

/// Quantisation table of the luminance, then of the chrominance, each in the order in which its
/// bytes stand in a DQT segment.
using JpegTables = std::array<std::uint8_t, 128>;

/// The tables of an RTP quality. Up to 99 they are the standard's typical ones (T.81, K.1 and K.2),
/// scaled as RFC 2435 appendix A says. Their entries stay in row order, as these cameras have it: a
/// decoder, which reads a DQT segment in zigzag order, gives most of them to other coefficients
/// than the standard means. From 128 on they are tables like no others, so that a receiver shows
/// that doesn't take them from the packet.
[[nodiscard]] JpegTables MakeJpegTables(std::uint8_t quality);

class CJpegEncoder {
   public:
    CJpegEncoder(SPictureSize size, const SJpegSettings& settings);
    CJpegEncoder(CJpegEncoder&&) noexcept;
    CJpegEncoder& operator=(CJpegEncoder&&) noexcept;
    ~CJpegEncoder();

    /// Colours a picture by a fixed scale, stamps that and gives its entropy-coded data up to and
    /// with the end-of-image marker, good until the next call. The picture stays as it is.
    [[nodiscard]] std::span<const std::uint8_t> Code(std::span<std::uint16_t> picture,
                                                     std::uint32_t number);

    struct SState;

   private:
    std::unique_ptr<SState> state;
};

}  // namespace korusim
