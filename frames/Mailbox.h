/// Hands the newest value from one thread to another without a wait on either side.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace frames {

/// Three slots: the writer fills one, the reader uses another, and the third is exchanged between
/// them. A value that the reader does not fetch in time is replaced by a newer one. One writer
/// thread and one reader thread.
template <class Value>
class CMailbox {
   public:
    /// Returns the slot to fill. Only the writer may use it, until `Send`.
    [[nodiscard]] Value& ForWriting() noexcept { return slots[writing]; }
    /// Sends the filled slot. Returns true if that replaced a value that was never fetched.
    bool Send() noexcept {
        const unsigned before = middle.exchange(writing | fresh, std::memory_order_acq_rel);
        writing = before & ~fresh;
        return (before & fresh) != 0;
    }

    /// Fetches the newest value. Returns null if there is none since the last call. Only the reader
    /// may use it, until the next call.
    [[nodiscard]] Value* Fetch() noexcept {
        if ((middle.load(std::memory_order_relaxed) & fresh) == 0) return nullptr;
        reading = middle.exchange(reading, std::memory_order_acq_rel) & ~fresh;
        return &slots[reading];
    }

   private:
    static constexpr unsigned fresh = 4;  // set while the middle slot has not been fetched

    std::array<Value, 3> slots{};
    unsigned writing = 0;  // used only by the writer
    unsigned reading = 1;  // used only by the reader
    std::atomic<unsigned> middle{2};
};

}  // namespace frames
