/// Wakes a waiting thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace qmxview {

/// Any thread may notify; one thread waits.
class CSignal {
   public:
    void Notify() {
        {
            const std::lock_guard guard(lock);
            notified = true;
        }
        changed.notify_one();
    }
    /// Waits until `Notify` has been called since the last call, or the time is up.
    void Wait(std::chrono::nanoseconds limit) {
        std::unique_lock guard(lock);
        changed.wait_for(guard, limit, [this] { return notified; });
        notified = false;
    }

   private:
    std::mutex lock;
    std::condition_variable changed;
    bool notified = false;
};

}  // namespace qmxview
