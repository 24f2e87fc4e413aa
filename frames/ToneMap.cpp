#include "ToneMap.h"

#include <algorithm>
#include <cmath>

namespace frames {
namespace {

/// Time in which the automatic levels move by about two thirds of a change, in seconds.
constexpr double settlingSeconds = 0.25;

double Towards(double from, double to, double share) { return from + (to - from) * share; }

}  // namespace

void CHistogram::Count(std::span<const std::uint16_t> pixels, std::size_t step) {
    if (sum != 0) std::fill(counts.begin() + least, counts.begin() + most + 1, 0U);
    sum = 0;
    least = 65535;
    most = 0;
    for (std::size_t i = 0; i < pixels.size(); i += step) {
        const std::uint16_t value = pixels[i];
        ++counts[value];
        ++sum;
        least = std::min(least, value);
        most = std::max(most, value);
    }
}

std::uint16_t CHistogram::Quantile(double share) const noexcept {
    if (sum == 0) return 0;
    const auto below =
        static_cast<std::uint64_t>(std::clamp(share, 0.0, 1.0) * static_cast<double>(sum));
    std::uint64_t passed = 0;
    std::uint16_t value = least;
    while (value < most && passed + counts[value] <= below) passed += counts[value++];
    return value;
}

SLevels CHistogram::Percentile(double percent) const noexcept {
    const double share = std::clamp(percent, 0.0, 50.0) / 100;
    const double low = Quantile(share);
    return {low, std::max<double>(low, Quantile(1 - share))};
}

SLevels CAutomaticLevels::Follow(const CHistogram& histogram, double percent, double seconds) {
    const SLevels wanted = histogram.Percentile(percent);
    if (!levels) {
        levels = wanted;
    } else {
        const double share = 1 - std::exp(-std::max(seconds, 0.0) / settlingSeconds);
        levels = SLevels{Towards(levels->low, wanted.low, share),
                         Towards(levels->high, wanted.high, share)};
    }
    return *levels;
}

void FillToneTable(ToneTable& table, const SLevels& levels) {
    constexpr double values = std::tuple_size_v<ToneTable>;
    // Only the values between the levels need arithmetic, and they are usually few.
    const auto first = static_cast<std::size_t>(std::clamp(std::ceil(levels.low), 0.0, values));
    const auto last = static_cast<std::size_t>(
        std::clamp(std::ceil(levels.high), static_cast<double>(first), values));
    std::fill_n(table.begin(), first, std::uint8_t{0});
    const double width = levels.high - levels.low;
    for (std::size_t value = first; value < last; ++value) {
        // Multiplied first, so that halves are exact and round the same way everywhere.
        const double step = (static_cast<double>(value) - levels.low) * 255 / width;
        table[value] = static_cast<std::uint8_t>(step + 0.5);
    }
    std::fill(table.begin() + static_cast<std::ptrdiff_t>(last), table.end(), std::uint8_t{255});
}

}  // namespace frames
