/// From 16-bit values to the colours of a screen.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "Palette.h"
#include "ToneMap.h"

namespace frames {

/// An opaque colour as 0xFFRRGGBB.
using Argb = std::uint32_t;

/// The colours of all 16-bit values, in memory of the caller.
using ColourTable = std::span<Argb, 65536>;

[[nodiscard]] constexpr Argb Opaque(SColour colour) noexcept {
    return 0xFF000000U | Argb{colour.red} << 16 | Argb{colour.green} << 8 | colour.blue;
}

/// Marked values. Their colours occur in no palette.
inline constexpr Argb isothermColour = 0xFF00FF00;
inline constexpr Argb saturationColour = 0xFFFF00FF;

/// A range of values; both ends belong to it.
struct SValueRange {
    std::uint16_t low = 0;
    std::uint16_t high = 0;
};

/// What a colour table is made of.
struct SColouring {
    Palette palette{};
    SLevels levels;
    std::optional<SValueRange> isotherm;      ///< values to mark
    std::optional<std::uint16_t> saturation;  ///< marks this value and those above it
};

/// Fills the table. The mark of saturation takes precedence over that of the isotherm.
void FillColourTable(ColourTable table, const SColouring& colouring);

/// Returns the darker grey of a colour, in which pictures of the past are shown.
[[nodiscard]] constexpr Argb Greyed(Argb colour) noexcept {
    const Argb sum = (colour >> 16 & 0xFF) + 2 * (colour >> 8 & 0xFF) + (colour & 0xFF);
    const Argb grey = 32 + sum / 8;
    return 0xFF000000U | grey << 16 | grey << 8 | grey;
}

}  // namespace frames
