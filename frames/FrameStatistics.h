/// Counts and rates of a stream.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

namespace frames {

using Clock = std::chrono::steady_clock;

struct SFrameTotals {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::uint64_t skipped = 0;
    std::uint64_t notKept = 0;  ///< counted, but the queue was full
    Clock::time_point first{};
    Clock::time_point last{};  ///< of any frame, including skipped ones
    Clock::duration longestGap{};
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
    /// Excludes the time until the next frame from the gaps, because the stream was stopped on
    /// purpose.
    void ExpectPause();
    [[nodiscard]] SFrameTotals Totals() const;

   private:
    mutable std::mutex lock;
    SFrameTotals totals;
    bool pauseExpected = false;
};

/// Returns the rates between two snapshots.
[[nodiscard]] SFrameRates RatesBetween(const SFrameTotals& earlier, const SFrameTotals& later,
                                       Clock::duration between);
/// Returns the rates from the first frame to the last; n frames have n - 1 intervals.
[[nodiscard]] SFrameRates RatesOverall(const SFrameTotals& totals);

[[nodiscard]] double Seconds(Clock::duration duration);
[[nodiscard]] double Milliseconds(Clock::duration duration);

}  // namespace frames
