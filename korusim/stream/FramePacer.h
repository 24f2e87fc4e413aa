/// Schedules the frames, and the packets of each frame over the frame time. It uses no clock: the
/// caller passes the time, which must not go backwards.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace korusim {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// Frames begin on an absolute schedule of slots, so that the rate is exact even if wake-ups are
/// late. A sender that is late by more than a slot skips slots. Catching up would only overrun the
/// receiver.
class CFramePacer {
   public:
    explicit CFramePacer(double framesPerSecond);

    /// Begins the first frame now. A frame in transit is abandoned.
    void Start(TimePoint now);
    /// Changes the rate from the next frame on.
    void SetRate(double framesPerSecond, TimePoint now);

    /// Begins the next frame if it is due and the previous one has been sent. Returns the time for
    /// which it was scheduled.
    [[nodiscard]] std::optional<TimePoint> Begin(TimePoint now);
    /// Sets the number of packets of the frame that has begun.
    void Load(std::size_t packets) noexcept;
    /// Returns how many packets of the frame to send now, and counts them as sent.
    [[nodiscard]] std::size_t Take(TimePoint now);
    /// Returns when to call again.
    [[nodiscard]] TimePoint nextDue() const;

    [[nodiscard]] bool frameInTransit() const noexcept { return sent < framePackets; }
    [[nodiscard]] std::uint64_t skippedSlots() const noexcept { return skipped; }

   private:
    [[nodiscard]] TimePoint SlotStart(std::uint64_t slot) const;
    [[nodiscard]] std::size_t BurstSize() const;

    double rate;
    TimePoint anchor;            // when slot 0 begins
    std::uint64_t nextSlot = 0;  // the next frame's
    TimePoint frameStart;
    std::chrono::nanoseconds spread{0};  // time over which the packets of the frame are sent
    std::size_t framePackets = 0;
    std::size_t sent = 0;
    TimePoint earliestBurst;
    std::uint64_t skipped = 0;
};

}  // namespace korusim
