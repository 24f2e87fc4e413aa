/// Where the pictures of a camera come from.
#pragma once

#include <cstdint>
#include <span>

namespace korusim {

/// The grey values that JPEG shows as black and as white. They are the same for every frame.
struct SGreyRange {
    std::uint16_t black = 0;
    std::uint16_t white = 0;  ///< larger than `black`
};

/// A sequence of grey pictures of one size.
class CPictureSource {
   public:
    virtual ~CPictureSource() = default;

    /// Writes the picture of a frame into width times height pixels. `seconds` is the time since
    /// the beginning of the stream, `frame` counts from 0. Several threads may call it. Throws
    /// `std::runtime_error`, whose text names the file, if the picture cannot be read.
    virtual void Render(double seconds, std::uint64_t frame,
                        std::span<std::uint16_t> picture) const = 0;
    [[nodiscard]] virtual SGreyRange range() const noexcept = 0;
    /// Returns true if rendering takes so long that it would delay the packets of a frame in
    /// transit.
    [[nodiscard]] virtual bool slow() const noexcept = 0;
};

}  // namespace korusim
