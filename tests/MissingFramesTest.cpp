// The estimate of missing frames, from intervals in milliseconds.
#include "MissingFrames.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace {

using Intervals = std::vector<double>;

/// Repeats a pattern.
Intervals Times(int number, const Intervals& pattern) {
    Intervals all;
    for (int i = 0; i < number; ++i) all.insert(all.end(), pattern.begin(), pattern.end());
    return all;
}

Intervals Joined(Intervals first, const Intervals& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

TEST(MissingFrames, CountsWhatWouldHaveFittedIntoTheGaps) {
    Intervals drift;
    for (int i = 0; i < 3000; ++i)
        drift.push_back(33 + 0.002 * i);  // slowly from 30 to 26 frames/s
    const struct {
        const char* name;
        Intervals intervals;
        std::uint64_t missing;
        double frameTime;
    } cases[] = {
        {"none", Times(90, {40}), 0, 40},
        {"every third", Times(300, {40, 80}), 300, 40},
        {"two of three, irregularly", Times(20, {40, 160, 40, 200, 80, 120, 40, 240}), 300, 40},
        {"one long ago", Joined(Times(9, {40}), Joined({80}, Times(500, {40}))), 1, 40},
        {"a late frame", Joined(Times(9, {40}), {52, 52, 16, 40, 40}), 0, 40},
        {"jitter", Times(50, {25, 55, 40, 30, 50, 40}), 0, 40},
        {"frames in pairs", Times(50, {1, 79}), 0, 80},
        {"a program that was stopped, and its buffer",  //
         Joined(Joined({40, 40, 800}, Times(12, {0.1})), Times(20, {40})), 7, 40},
        {"the same, with more frames in the buffer than before",
         Joined(Joined({40, 40, 800}, Times(12, {0.1})), Times(5, {40})), 7, 40},
        {"jitter that hides the frame time at first", {90, 130, 85, 95, 120, 80, 90, 110}, 0, 100},
        {"a rate that drifts", drift, 0, 38.9},
        {"a rate that nothing shows", {40, 400, 40}, 0, 0},
        {"the fewest intervals", {40, 40, 120, 40}, 2, 40},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        frames::CMissingFrames estimate;
        const auto duration = [](double milliseconds) {
            return std::chrono::duration_cast<frames::Clock::duration>(
                std::chrono::duration<double, std::milli>(milliseconds));
        };
        for (const double each : row.intervals) estimate.Add(duration(each));
        EXPECT_EQ(estimate.count(), row.missing);
        using Milliseconds = std::chrono::duration<double, std::milli>;
        EXPECT_NEAR(Milliseconds(estimate.FrameTime()).count(), row.frameTime, 0.1 * row.frameTime);
    }
}

}  // namespace
