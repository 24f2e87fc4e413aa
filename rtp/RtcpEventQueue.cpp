#include "RtcpEventQueue.h"

#include <utility>

namespace qmx::cam {

void CRtcpEventQueue::Post(ERtcpEvent kind, double time, std::uint32_t lastSenderReport) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const SRtcpEvent event{kind, time, lastSenderReport};
        if (kind == ERtcpEvent::Stop) {
            stop = event;
        } else if (!stop) {
            events.push_back(event);
        }
    }
    arrived.notify_one();
}

SRtcpEvent CRtcpEventQueue::Wait() {
    std::unique_lock<std::mutex> lock(mutex);
    arrived.wait(lock, [this] { return !events.empty() || stop; });
    if (events.empty()) return *std::exchange(stop, std::nullopt);
    const SRtcpEvent oldest = events.front();
    events.pop_front();
    return oldest;
}

void CRtcpEventQueue::Clear() {
    const std::lock_guard<std::mutex> lock(mutex);
    events.clear();
    stop.reset();
}

}  // namespace qmx::cam
