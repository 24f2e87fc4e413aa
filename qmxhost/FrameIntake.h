/// Receives frames on the plug-in's thread: skips, counts and queues them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "FrameQueue.h"
#include "FrameStatistics.h"

namespace qmxhost {

/// The context of the frame callback. Must outlive the device that calls it.
class CFrameIntake {
   public:
    /// Skips the first `toSkip` frames and counts at most `toCount` after them (0: no limit).
    /// Counted frames are copied into the queue if `toQueue` is true.
    CFrameIntake(std::uint64_t toSkip, std::uint64_t toCount, bool toQueue)
        : skip(toSkip), count(toCount), keep(toQueue) {}

    /// Makes room for frames of this length in bytes. Call it before the stream starts.
    void Reserve(std::size_t frameLength) {
        if (keep) waiting.Reserve(frameLength);
    }
    /// The frame callback. Copies the frame and returns; never throws and never waits for the
    /// consumer of the queue.
    static void OnFrame(void* context, const std::uint8_t* frame, std::uint32_t length) noexcept {
        static_cast<CFrameIntake*>(context)->Add({frame, length});
    }
    [[nodiscard]] frames::SFrameTotals Totals() const { return statistics.Totals(); }
    /// Returns the totals at the end of the stream; see `CFrameStatistics`.
    [[nodiscard]] frames::SFrameTotals TotalsAt(frames::Clock::time_point end) const {
        return statistics.TotalsAt(end);
    }
    [[nodiscard]] frames::CFrameQueue& queue() noexcept { return waiting; }

   private:
    void Add(std::span<const std::uint8_t> frame);
    [[nodiscard]] bool Push(std::span<const std::uint8_t> frame, frames::Clock::time_point now);

    const std::uint64_t skip;
    const std::uint64_t count;
    const bool keep;
    std::uint64_t skipped = 0;        // accessed only by the callback thread
    std::uint64_t taken = 0;          // likewise
    frames::Clock::time_point begun;  // arrival of the first counted frame; likewise
    frames::CFrameStatistics statistics;
    frames::CFrameQueue waiting;
};

}  // namespace qmxhost
