/// A value over time.
#pragma once

#include <cstddef>
#include <vector>

namespace qmxview {

/// The last values of a quantity, one for each frame shown.
class CTimeSeries {
   public:
    static constexpr std::size_t capacity = 600;  ///< ten seconds at 60 frames/s

    void Add(float value) {
        if (values.size() == capacity) values.erase(values.begin());
        values.push_back(value);
    }
    void Clear() noexcept { values.clear(); }
    /// Returns the values, oldest first.
    [[nodiscard]] const std::vector<float>& all() const noexcept { return values; }

   private:
    std::vector<float> values;
};

}  // namespace qmxview
