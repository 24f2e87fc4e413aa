/// The events that the RTCP send thread handles.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

namespace qmx::cam {

enum class ERtcpEvent : std::uint32_t {
    SenderReport = 0,  ///< a sender report has arrived
    Stop = 1,          ///< the run ends: send the last report
};

struct SRtcpEvent {
    ERtcpEvent kind;
    double time;                     ///< seconds since the run began
    std::uint32_t lastSenderReport;  ///< middle 32 bits of the NTP time, bytes in wire order
};

/// A first-in, first-out queue without a limit. Sender reports posted after a stop are discarded,
/// so that a camera cannot delay the end of a run. Safe from any thread.
class CRtcpEventQueue {
   public:
    /// Appends an event. Throws `std::bad_alloc` when there is no memory for a sender report; a
    /// stop needs none, so that a run can always be ended.
    void Post(ERtcpEvent kind, double time, std::uint32_t lastSenderReport);
    /// Removes and returns the oldest event. Blocks until there is one.
    [[nodiscard]] SRtcpEvent Wait();
    void Clear();

   private:
    std::mutex mutex;
    std::condition_variable arrived;
    std::deque<SRtcpEvent> events;
    std::optional<SRtcpEvent> stop;
};

}  // namespace qmx::cam
