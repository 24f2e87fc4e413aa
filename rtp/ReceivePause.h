/// Keeps a receive loop from spinning on a socket that fails at every call.
#pragma once

#include <chrono>
#include <thread>

namespace qmx::cam {

/// Counts failed receives in a row. A single failure says nothing about the next receive: a
/// datagram was too large, one that was sent earlier could not be delivered, or a signal arrived.
/// Many in a row mean that the socket itself no longer works, for instance because its interface is
/// gone or the host has shut the socket library down. Used by one thread.
class CReceivePause {
   public:
    void Succeeded() noexcept { failures = 0; }
    /// Returns at once for the first failures in a row, after `pause` for each further one.
    void Failed() {
        if (failures < tolerated) {
            ++failures;
        } else {
            std::this_thread::sleep_for(pause);
        }
    }

   private:
    /// More than a camera causes by accident, few enough to cost no time worth mentioning.
    static constexpr unsigned tolerated = 16;
    /// Costs next to no processor time, and delays a stop by no more than this.
    static constexpr std::chrono::milliseconds pause{5};

    unsigned failures = 0;
};

}  // namespace qmx::cam
