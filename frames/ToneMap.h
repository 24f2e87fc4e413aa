/// From 16-bit values to brightness: histogram, levels and the table that maps one to the other.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace frames {

/// The values that are shown as the coldest and the hottest colour; `low` is at most `high`.
struct SLevels {
    double low = 0;
    double high = 0;
};

/// Counts the values of a picture. Large pictures are sampled: every `step`-th pixel counts.
class CHistogram {
   public:
    /// Replaces the counts by those of a picture.
    void Count(std::span<const std::uint16_t> pixels, std::size_t step = 4);

    /// Returns the number of counted pixels.
    [[nodiscard]] std::uint64_t total() const noexcept { return sum; }
    [[nodiscard]] std::uint32_t at(std::uint16_t value) const noexcept { return counts[value]; }
    /// Returns the smallest value that at most this share of the pixels is below; 0 without pixels.
    [[nodiscard]] std::uint16_t Quantile(double share) const noexcept;
    /// Returns the levels that leave out this percentage of the pixels at either end.
    [[nodiscard]] SLevels Percentile(double percent) const noexcept;

   private:
    std::vector<std::uint32_t> counts = std::vector<std::uint32_t>(65536);
    std::uint64_t sum = 0;
    std::uint16_t least = 0;
    std::uint16_t most = 0;
};

/// Levels that follow the picture without flicker.
class CAutomaticLevels {
   public:
    /// Moves the levels towards those of the histogram, by a share that depends on the time since
    /// the last call, in seconds. The first call uses them unchanged.
    SLevels Follow(const CHistogram& histogram, double percent, double seconds);
    /// Makes the next call use the levels of its histogram unchanged.
    void Restart() noexcept { levels.reset(); }

   private:
    std::optional<SLevels> levels;
};

/// A table from each 16-bit value to one of 256 steps from cold to hot.
using ToneTable = std::array<std::uint8_t, 65536>;

/// Fills the table: values up to `low` map to 0, from `high` on to 255, and those in between
/// linearly. If both levels are equal, that value and those above it map to 255.
void FillToneTable(ToneTable& table, const SLevels& levels);

}  // namespace frames
