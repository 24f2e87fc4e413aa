#include "FrameQueue.h"

#include <algorithm>
#include <new>

namespace frames {

void CFrameQueue::Reserve(std::size_t frameLength) {
    try {
        for (SFrame& slot : ring) slot.bytes.reserve(std::min(frameLength, longestFrame));
    } catch (const std::bad_alloc&) {
        for (SFrame& slot : ring) slot = SFrame();  // leave the memory to others
    }
}

bool CFrameQueue::Push(std::span<const std::uint8_t> frame, const SArrival& arrival) {
    {
        const std::lock_guard guard(lock);
        if (used == slots) return false;
    }
    // Copied without the lock: the consumer does not use a slot before it counts as used.
    SFrame& slot = ring[writeAt];
    slot.bytes.assign(frame.begin(), frame.end());
    slot.arrival = arrival;
    writeAt = (writeAt + 1) % slots;
    {
        const std::lock_guard guard(lock);
        ++used;
    }
    arrived.notify_one();
    return true;
}

const SFrame* CFrameQueue::Front(std::chrono::milliseconds limit) {
    std::unique_lock guard(lock);
    if (!arrived.wait_for(guard, limit, [this] { return used != 0; })) return nullptr;
    return &ring[readAt];
}

void CFrameQueue::Pop() {
    readAt = (readAt + 1) % slots;
    // From here on the producer may write to the slot again.
    const std::lock_guard guard(lock);
    --used;
}

}  // namespace frames
