/// Statistics of a region of a picture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "Picture.h"

namespace frames {

/// A rectangle of pixels; `right` and `bottom` are excluded.
struct SRegion {
    std::uint32_t left = 0;
    std::uint32_t top = 0;
    std::uint32_t right = 0;
    std::uint32_t bottom = 0;
};

/// A pixel and its value.
struct SSpot {
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    std::uint16_t value = 0;
};

struct SRegionStatistics {
    SSpot coldest;  ///< the first one in reading order
    SSpot hottest;  ///< the first one in reading order
    double mean = 0;
    double deviation = 0;  ///< standard deviation of all pixels, not of a sample
    std::uint64_t pixels = 0;
};

/// Returns the statistics of the part of a region that is within the picture, or nothing if that
/// part is empty. The first `ignored` pixels of the picture do not count; they must be in its first
/// row.
[[nodiscard]] std::optional<SRegionStatistics> Measure(const SGreyPicture& picture, SRegion region,
                                                       std::size_t ignored = 0);

}  // namespace frames
