#include "HistogramPlot.h"

#include <algorithm>
#include <cmath>

namespace qmxview {
namespace {

/// Percentage of the pixels at either end that do not widen the plot.
constexpr double outlierPercent = 0.05;
constexpr double leastSpan = 16;
constexpr double largest = 65535;

}  // namespace

frames::SLevels PlotRange(const frames::CHistogram& histogram, const frames::SLevels& levels,
                          const frames::SLevels& present) {
    const frames::SLevels most = histogram.Percentile(outlierPercent);
    const frames::SLevels values{std::min(most.low, levels.low), std::max(most.high, levels.high)};
    const double span = std::max(values.high - values.low, leastSpan);
    const bool outside = values.low < present.low || values.high > present.high;
    const bool tooWide = present.high - present.low > 4 * span;
    if (!outside && !tooWide) return present;
    return {std::max(0.0, values.low - span / 4), std::min(largest, values.high + span / 4)};
}

std::vector<float> PlotColumns(const frames::CHistogram& histogram, const frames::SLevels& range,
                               std::size_t columns) {
    std::vector<float> heights(columns);
    const double width = (range.high - range.low + 1) / static_cast<double>(columns);
    float highest = 0;
    for (std::size_t i = 0; i < columns; ++i) {
        const double begin = range.low + width * static_cast<double>(i);
        const auto first = static_cast<std::uint32_t>(std::clamp(begin, 0.0, largest));
        const auto end = static_cast<std::uint32_t>(std::clamp(begin + width, 0.0, largest + 1));
        double sum = 0;
        for (std::uint32_t value = first; value < std::max(end, first + 1); ++value) {
            sum += histogram.at(static_cast<std::uint16_t>(value));
        }
        heights[i] = static_cast<float>(std::log1p(sum));
        highest = std::max(highest, heights[i]);
    }
    if (highest == 0) return heights;
    for (float& height : heights) height /= highest;
    return heights;
}

frames::SLevels DragLevel(frames::SLevels levels, double value, int& held) {
    if (held == 0) held = std::abs(value - levels.low) < std::abs(value - levels.high) ? -1 : 1;
    if (held < 0) {
        levels.low = std::clamp(std::round(value), 0.0, levels.high);
    } else {
        levels.high = std::clamp(std::round(value), levels.low, largest);
    }
    return levels;
}

}  // namespace qmxview
