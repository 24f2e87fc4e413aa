#include "FrameIntake.h"

#include <new>

namespace qmxhost {

void CFrameIntake::Add(std::span<const std::uint8_t> frame) {
    const auto now = frames::Clock::now();
    if (skipped < skip) {
        ++skipped;
        statistics.AddSkipped(now);
        return;
    }
    if (count != 0 && taken == count) return;  // the stream is about to be stopped
    if (taken++ == 0) begun = now;
    statistics.Add(static_cast<std::uint32_t>(frame.size()), now);
    if (keep && !Push(frame, now)) statistics.AddNotKept();
}

bool CFrameIntake::Push(std::span<const std::uint8_t> frame, frames::Clock::time_point now) {
    try {
        return waiting.Push(
            frame, {taken, std::chrono::system_clock::now(), frames::Seconds(now - begun)});
    } catch (const std::bad_alloc&) {
        return false;  // no exception may reach the plug-in's thread
    }
}

}  // namespace qmxhost
