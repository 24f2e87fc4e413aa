#include "FramePacer.h"

#include <algorithm>
#include <cmath>

#include "ServerSockets.h"

namespace korusim {
namespace {

using std::chrono::nanoseconds;

constexpr double nanosecondsPerSecond = 1e9;
/// Least value of `BurstTime`, which limits the wake-ups to 2000 per second.
constexpr nanoseconds minBurstTime{500'000};
/// Longest time for sending a frame, also at low frame rates.
constexpr nanoseconds maxSpread{100'000'000};

/// Returns the time within which the packets that are due are sent together. It is longer where the
/// system's waits are, so that bursts at half that distance are possible.
nanoseconds BurstTime() { return std::max(minBurstTime, 2 * platform::shortestWait); }

/// Returns the least time between two bursts: a late frame is sent at twice its speed, not as fast
/// as the machine can.
nanoseconds MinBurstDistance() { return BurstTime() / 2; }

nanoseconds Period(double rate) { return nanoseconds(std::llround(nanosecondsPerSecond / rate)); }

}  // namespace

CFramePacer::CFramePacer(double framesPerSecond) : rate(framesPerSecond) {}

void CFramePacer::Start(TimePoint now) {
    anchor = now;
    nextSlot = 0;
    frameStart = now;
    framePackets = 0;
    sent = 0;
}

void CFramePacer::SetRate(double framesPerSecond, TimePoint now) {
    rate = framesPerSecond;
    const bool begun = nextSlot > 0;
    anchor = begun ? std::max(now, frameStart + Period(rate)) : now;
    nextSlot = 0;
}

TimePoint CFramePacer::SlotStart(std::uint64_t slot) const {
    return anchor +
           nanoseconds(std::llround(static_cast<double>(slot) * nanosecondsPerSecond / rate));
}

std::optional<TimePoint> CFramePacer::Begin(TimePoint now) {
    if (frameInTransit() || now < SlotStart(nextSlot)) return std::nullopt;
    if (now >= SlotStart(nextSlot + 1)) {
        const double passed = std::chrono::duration<double>(now - anchor).count() * rate;
        // Rounding may have counted one slot too many.
        auto slot = std::max(static_cast<std::uint64_t>(passed), nextSlot + 1);
        if (now < SlotStart(slot)) --slot;
        skipped += slot - nextSlot;
        nextSlot = slot;
    }
    frameStart = SlotStart(nextSlot++);
    spread = std::min(Period(rate), maxSpread);
    framePackets = 0;
    sent = 0;
    return frameStart;
}

void CFramePacer::Load(std::size_t packets) noexcept { framePackets = packets; }

std::size_t CFramePacer::BurstSize() const {
    const double share = static_cast<double>(BurstTime().count()) /
                         static_cast<double>(std::max<std::int64_t>(spread.count(), 1));
    return static_cast<std::size_t>(std::ceil(static_cast<double>(framePackets) * share));
}

std::size_t CFramePacer::Take(TimePoint now) {
    if (!frameInTransit() || now < frameStart || now < earliestBurst) return 0;
    const double part = static_cast<double>((now - frameStart).count()) /
                        static_cast<double>(std::max<std::int64_t>(spread.count(), 1));
    const double due = std::floor(part * static_cast<double>(framePackets)) + 1;
    const std::size_t dueNow =
        due < static_cast<double>(framePackets) ? static_cast<std::size_t>(due) : framePackets;
    if (dueNow <= sent) return 0;
    const std::size_t taken = std::min(dueNow - sent, BurstSize());
    sent += taken;
    earliestBurst = now + MinBurstDistance();
    return taken;
}

TimePoint CFramePacer::nextDue() const {
    if (!frameInTransit()) return SlotStart(nextSlot);
    // The last packet of the next burst determines its time; the others wait for it.
    const std::size_t last = std::min(sent + BurstSize(), framePackets) - 1;
    const double part = static_cast<double>(last) / static_cast<double>(framePackets);
    const nanoseconds offset(
        static_cast<std::int64_t>(std::ceil(part * static_cast<double>(spread.count()))));
    return std::max(frameStart + offset, earliestBurst);
}

}  // namespace korusim
