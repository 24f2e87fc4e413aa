/// Estimates from the times of a stream's frames how many frames are missing.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace frames {

using Clock = std::chrono::steady_clock;

/// Derives the frame time from the latest intervals between frames, and counts the frames that
/// would have fitted into longer intervals. A frame that is merely late does not count: it shortens
/// the next interval. Works with every camera and without its nominal rate, as long as at least a
/// third of the frames arrive. A stream whose rate is changed needs a new object.
class CMissingFrames {
   public:
    /// Adds the interval between two delivered frames.
    void Add(Clock::duration interval);
    /// Returns the number of missing frames; 0 until four intervals are known.
    [[nodiscard]] std::uint64_t count() const;
    /// Returns the time from frame to frame while none is missing; 0 until four intervals are
    /// known.
    [[nodiscard]] Clock::duration FrameTime() const;
    /// Returns true if most of the latest intervals are about as long as `frameTime`, as without
    /// missing frames.
    [[nodiscard]] bool IsRegular(Clock::duration frameTime) const;

   private:
    static constexpr std::size_t remembered = 64;

    /// Counts frames along a regular schedule.
    struct SSchedule {
        std::int64_t missing = 0;
        double lateness = 0;  // of the last frame, in frame times

        void Add(Clock::duration interval, Clock::duration frameTime);
    };

    // A ring. The frame time may still change their meaning, so that they are counted when asked
    // for; older ones have been added to the schedule.
    std::array<Clock::duration, remembered> latest{};
    std::size_t intervals = 0;
    SSchedule schedule;
};

}  // namespace frames
