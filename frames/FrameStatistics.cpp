#include "FrameStatistics.h"

#include <algorithm>

namespace frames {
namespace {

SFrameRates Rates(double frames, double bytes, Clock::duration time) {
    const double seconds = Seconds(time);
    if (seconds <= 0) return {};
    return {frames / seconds, bytes * 8 / 1e6 / seconds};
}

}  // namespace

void CFrameStatistics::Add(std::uint32_t length, Clock::time_point when) {
    const std::lock_guard guard(lock);
    if (totals.frames == 0) {
        totals.first = when;
    } else if (!pauseExpected) {
        totals.longestGap = std::max(totals.longestGap, when - totals.last);
        missing.Add(when - totals.last);
    }
    pauseExpected = false;
    totals.last = when;
    ++totals.frames;
    totals.bytes += length;
}

void CFrameStatistics::AddSkipped(Clock::time_point when) {
    const std::lock_guard guard(lock);
    totals.last = when;
    ++totals.skipped;
}

void CFrameStatistics::AddNotKept() {
    const std::lock_guard guard(lock);
    ++totals.notKept;
}

void CFrameStatistics::ExpectPause() {
    const std::lock_guard guard(lock);
    pauseExpected = true;
    missingBefore += missing.count();
    missing = {};
}

SFrameTotals CFrameStatistics::Totals() const {
    std::unique_lock guard(lock);
    SFrameTotals result = totals;
    result.missing = missingBefore;
    const CMissingFrames estimate = missing;
    guard.unlock();  // the frame callback does not wait for the estimate, which sorts
    result.missing += estimate.count();
    result.frameTime = estimate.FrameTime();
    result.regular = estimate.IsRegular(result.frameTime);
    return result;
}

SFrameTotals CFrameStatistics::TotalsAt(Clock::time_point end) const {
    SFrameTotals result = Totals();
    if (result.frames != 0) result.longestGap = std::max(result.longestGap, end - result.last);
    return result;
}

SFrameRates RatesBetween(const SFrameTotals& earlier, const SFrameTotals& later,
                         Clock::duration between) {
    return Rates(static_cast<double>(later.frames - earlier.frames),
                 static_cast<double>(later.bytes - earlier.bytes), between);
}

SFrameRates RatesOverall(const SFrameTotals& totals) {
    if (totals.frames < 2) return {};
    const double frames = static_cast<double>(totals.frames);
    const double meanBytes = static_cast<double>(totals.bytes) / frames;
    return Rates(frames - 1, meanBytes * (frames - 1), totals.last - totals.first);
}

double Seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

double Milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

}  // namespace frames
