#include "Region.h"

#include <algorithm>
#include <cmath>

namespace frames {

std::optional<SRegionStatistics> Measure(const SGreyPicture& picture, SRegion region,
                                         std::size_t ignored) {
    region.right = std::min(region.right, picture.width);
    region.bottom = std::min(region.bottom, picture.height);
    if (region.left >= region.right || region.top >= region.bottom) return std::nullopt;
    SRegionStatistics result;
    // 64 bits hold the squares of 2^32 pixels.
    std::uint64_t sum = 0;
    std::uint64_t squares = 0;
    for (std::uint32_t y = region.top; y < region.bottom; ++y) {
        const auto left =
            y == 0 ? std::max(region.left, static_cast<std::uint32_t>(ignored)) : region.left;
        const std::uint16_t* const row = &picture.pixels[std::size_t{y} * picture.width];
        for (std::uint32_t x = left; x < region.right; ++x) {
            const std::uint16_t value = row[x];
            if (result.pixels == 0 || value < result.coldest.value) result.coldest = {x, y, value};
            if (result.pixels == 0 || value > result.hottest.value) result.hottest = {x, y, value};
            sum += value;
            squares += std::uint64_t{value} * value;
            ++result.pixels;
        }
    }
    if (result.pixels == 0) return std::nullopt;
    const auto count = static_cast<double>(result.pixels);
    result.mean = static_cast<double>(sum) / count;
    const double variance = static_cast<double>(squares) / count - result.mean * result.mean;
    result.deviation = std::sqrt(std::max(variance, 0.0));
    return result;
}

}  // namespace frames
