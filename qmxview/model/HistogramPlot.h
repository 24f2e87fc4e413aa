/// The histogram as it is drawn: which values it covers, and how high each column is.
#pragma once

#include <cstddef>
#include <vector>

#include "ToneMap.h"

namespace qmxview {

/// Returns the range of values to draw. It contains the levels and all values but a few outliers,
/// and remains `present` as long as that is suitable, so that the plot does not tremble.
[[nodiscard]] frames::SLevels PlotRange(const frames::CHistogram& histogram,
                                        const frames::SLevels& levels,
                                        const frames::SLevels& present);

/// Returns the heights of `columns` columns that share a range, from 0 to 1. They are logarithmic,
/// because small peaks matter.
[[nodiscard]] std::vector<float> PlotColumns(const frames::CHistogram& histogram,
                                             const frames::SLevels& range, std::size_t columns);

/// Returns the levels after the closer one, or the one that is held, has been moved to a value.
/// `held` is 0 at the beginning of a drag, then -1 for the low level and 1 for the high one.
[[nodiscard]] frames::SLevels DragLevel(frames::SLevels levels, double value, int& held);

}  // namespace qmxview
