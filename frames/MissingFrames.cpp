#include "MissingFrames.h"

#include <algorithm>
#include <cmath>

namespace frames {
namespace {

constexpr std::size_t fewest = 4;
/// Intervals shorter than the upper quartile by this factor belong to a burst.
constexpr int burst = 8;
/// Share of a frame's lateness that still counts at the next frame. The rest is forgotten, so that
/// a small error of the frame time does not add up to a missing frame.
constexpr double memory = 0.9;

double Ratio(Clock::duration interval, Clock::duration frameTime) {
    return static_cast<double>(interval.count()) / static_cast<double>(frameTime.count());
}

}  // namespace

void CMissingFrames::SSchedule::Add(Clock::duration interval, Clock::duration frameTime) {
    if (frameTime <= Clock::duration::zero()) return;
    const double time = lateness + Ratio(interval, frameTime);
    const double frames = std::round(time);
    missing += static_cast<std::int64_t>(frames) - 1;
    lateness = memory * (time - frames);
}

Clock::duration CMissingFrames::FrameTime() const {
    const std::size_t known = std::min(intervals, remembered);
    if (known < fewest) return {};
    auto all = latest;
    const auto end = all.begin() + static_cast<std::ptrdiff_t>(known);
    std::sort(all.begin(), end);
    // Frames that come in a burst, such as those that waited in a buffer, say nothing.
    const auto begin = std::lower_bound(all.begin(), end, all[known * 3 / 4] / burst);
    // The median, unless most intervals contain missing frames: the lower quartile is then half or
    // a third of it.
    const Clock::duration quartile = begin[(end - begin) / 4];
    const Clock::duration median = begin[(end - begin) / 2];
    const bool sparse = median > quartile * 5 / 3 && median < quartile * 7 / 2;
    const Clock::duration typical = sparse ? quartile : median;
    if (typical <= Clock::duration::zero()) return {};
    // Jitter makes it inexact; the total time and the whole frames in it do not depend on jitter.
    Clock::duration sum{};
    std::int64_t frames = 0;
    for (auto each = all.begin(); each != end; ++each) {
        sum += *each;
        frames += std::llround(Ratio(*each, typical));
    }
    return sum / frames;
}

bool CMissingFrames::IsRegular(Clock::duration frameTime) const {
    constexpr std::size_t enough = 10;  // fewer may be alike by chance
    const std::size_t known = std::min(intervals, remembered);
    if (frameTime <= Clock::duration::zero()) return false;
    const auto alike = std::count_if(
        latest.begin(), latest.begin() + static_cast<std::ptrdiff_t>(known),
        [&](Clock::duration each) { return std::abs(Ratio(each, frameTime) - 1) < 0.25; });
    const double share = known < enough ? 0.9 : 0.6;
    return static_cast<double>(alike) > share * static_cast<double>(known);
}

void CMissingFrames::Add(Clock::duration interval) {
    Clock::duration& place = latest[intervals % remembered];
    if (intervals >= remembered) schedule.Add(place, FrameTime());
    place = interval;
    ++intervals;
}

std::uint64_t CMissingFrames::count() const {
    SSchedule all = schedule;
    const Clock::duration frameTime = FrameTime();
    for (std::size_t i = std::max(intervals, remembered) - remembered; i < intervals; ++i) {
        all.Add(latest[i % remembered], frameTime);
    }
    return static_cast<std::uint64_t>(std::max<std::int64_t>(all.missing, 0));
}

}  // namespace frames
