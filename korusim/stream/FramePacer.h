/// When frames begin and how their packets spread over the frame time. Knows no clock: each call is
/// told the time, which must not go back.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace korusim {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// Frames begin on an absolute schedule of slots, so that the rate is exact however late each
/// wake-up is. A sender that has fallen behind by more than a slot leaves slots out; it doesn't
/// catch up, which would only overrun the receiver.
class CFramePacer {
   public:
    explicit CFramePacer(double framesPerSecond);

    /// The first frame begins now. A frame in transit is given up.
    void Start(TimePoint now);
    /// The frame in transit ends as it is, the next one begins by the new rate.
    void SetRate(double framesPerSecond, TimePoint now);

    /// Begins the next frame when its time has come and the one before is out: gives the time
    /// that it was scheduled for.
    [[nodiscard]] std::optional<TimePoint> Begin(TimePoint now);
    /// The frame that has begun has so many packets.
    void Load(std::size_t packets) noexcept;
    /// How many packets of the frame are to go out now; counts them as gone.
    [[nodiscard]] std::size_t Take(TimePoint now);
    /// When to call again.
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
    std::chrono::nanoseconds spread{0};  // time over which the frame's packets go out
    std::size_t framePackets = 0;
    std::size_t sent = 0;
    TimePoint earliestBurst;
    std::uint64_t skipped = 0;
};

}  // namespace korusim
