/// What wakes the RTCP send thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

namespace qmx::cam {

enum class ERtcpEvent : std::uint32_t {
    SenderReport = 0,  ///< the camera has reported
    Stop = 1,          ///< the run ends
};

struct SRtcpEvent {
    ERtcpEvent kind;
    double time;                     ///< seconds since the run began
    std::uint32_t lastSenderReport;  ///< middle 32 bits of the NTP time, bytes in wire order
};

/// First in, first out, without a bound. What comes behind a stop is never handled, so a camera
/// that goes on reporting can't hold it up. Safe from any thread.
class CRtcpEventQueue {
   public:
    /// Raises `std::bad_alloc` when there is no memory; a stop needs none, so that a run can be
    /// ended always.
    void Post(ERtcpEvent kind, double time, std::uint32_t lastSenderReport);
    /// Blocks until there is an event.
    [[nodiscard]] SRtcpEvent Wait();
    void Clear();

   private:
    std::mutex mutex;
    std::condition_variable arrived;
    std::deque<SRtcpEvent> events;
    std::optional<SRtcpEvent> stop;
};

}  // namespace qmx::cam
