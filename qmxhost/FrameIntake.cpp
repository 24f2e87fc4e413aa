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
    ++taken;
    statistics.Add(static_cast<std::uint32_t>(frame.size()), now);
    if (keep && !Push(frame)) statistics.AddNotKept();
}

bool CFrameIntake::Push(std::span<const std::uint8_t> frame) {
    try {
        return waiting.Push(frame, taken);
    } catch (const std::bad_alloc&) {
        return false;  // no exception may reach the plug-in's thread
    }
}

}  // namespace qmxhost
