#include "MissingFrames.h"

#include <algorithm>
#include <cmath>

namespace frames {
namespace {

constexpr std::size_t fewest = 4;
/// Intervals that differ from the frame time by less than this share have no frame missing.
constexpr double tolerance = 0.25;
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
    auto sorted = latest;
    std::sort(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(known));
    // The median, unless most intervals contain missing frames: the lower quartile is then half or
    // a third of it. Frames that come in bursts have a far smaller one.
    const Clock::duration quartile = sorted[known / 4];
    const Clock::duration median = sorted[known / 2];
    const bool sparse = median > quartile * 5 / 3 && median < quartile * 7 / 2;
    const Clock::duration typical = sparse ? quartile : median;
    Clock::duration sum{};
    std::int64_t like = 0;
    for (std::size_t i = 0; i < known; ++i) {
        if (std::abs(Ratio(sorted[i], typical) - 1) > tolerance) continue;
        sum += sorted[i];
        ++like;
    }
    return like == 0 ? typical : sum / like;
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
