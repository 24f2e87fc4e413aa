#include "RtcpEventQueue.h"

namespace qmx::cam {

void CRtcpEventQueue::Post(ERtcpEvent kind, double time, std::uint32_t lastSenderReport) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        events.push_back({kind, time, lastSenderReport});
    }
    arrived.notify_one();
}

SRtcpEvent CRtcpEventQueue::Wait() {
    std::unique_lock<std::mutex> lock(mutex);
    arrived.wait(lock, [this] { return !events.empty(); });
    const SRtcpEvent oldest = events.front();
    events.pop_front();
    return oldest;
}

void CRtcpEventQueue::Clear() {
    const std::lock_guard<std::mutex> lock(mutex);
    events.clear();
}

}  // namespace qmx::cam
