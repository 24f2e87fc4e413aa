/// Counts and rates of a stream.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

#include "MissingFrames.h"

namespace frames {

struct SFrameTotals {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::uint64_t skipped = 0;
    std::uint64_t notKept = 0;  ///< counted, but the queue was full
    std::uint64_t missing = 0;  ///< estimated from the gaps between frames
    Clock::time_point first{};
    Clock::time_point last{};  ///< of any frame, including skipped ones
    Clock::duration longestGap{};
    Clock::duration frameTime{};  ///< while no frame is missing; 0 if unknown
    bool regular = false;         ///< most of the latest intervals last about `frameTime`
};

struct SFrameRates {
    double framesPerSecond = 0;
    double megabitsPerSecond = 0;
};

/// The plug-in's thread adds frames; any thread may read.
class CFrameStatistics {
   public:
    void Add(std::uint32_t length, Clock::time_point when);
    void AddSkipped(Clock::time_point when);
    void AddNotKept();
    /// Excludes the time until the next frame from the gaps, because the stream is stopped on
    /// purpose or changes its rate.
    void ExpectPause();
    [[nodiscard]] SFrameTotals Totals() const;
    /// Like `Totals`, at the end of a stream: the time since the last frame counts as a gap.
    [[nodiscard]] SFrameTotals TotalsAt(Clock::time_point end) const;

   private:
    mutable std::mutex lock;
    SFrameTotals totals;
    bool pauseExpected = false;
    CMissingFrames missing;
    std::uint64_t missingBefore = 0;  // until the last expected pause
};

/// Returns the rates between two snapshots.
[[nodiscard]] SFrameRates RatesBetween(const SFrameTotals& earlier, const SFrameTotals& later,
                                       Clock::duration between);
/// Returns the rates from the first frame to the last; n frames have n - 1 intervals.
[[nodiscard]] SFrameRates RatesOverall(const SFrameTotals& totals);

[[nodiscard]] double Seconds(Clock::duration duration);
[[nodiscard]] double Milliseconds(Clock::duration duration);

}  // namespace frames
