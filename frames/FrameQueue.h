/// Bounded way of frames from the plug-in's thread to the main thread.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace frames {

/// One frame, copied out of the plug-in's buffer.
struct SFrame {
    std::vector<std::uint8_t> bytes;
    std::uint64_t arrival = 0;  ///< 1 for the first counted frame of a stream
};

/// One producer, one consumer. A slot's memory is reused for ever, so that pushing allocates only
/// when a frame is longer than any before it in its slot.
class CFrameQueue {
   public:
    /// About a second of video: what a slow disk may hold things up for.
    static constexpr std::size_t slots = 32;

    /// Longest frame that the plug-in delivers. A camera's description may claim any size.
    static constexpr std::size_t longestFrame = std::size_t{32} << 20;

    /// Makes room for frames of this length, at most `longestFrame`, in every slot; before the
    /// first push. Where memory is short there is no room made, and pushing allocates what it
    /// needs.
    void Reserve(std::size_t frameLength);

    /// Copies a frame in, without waiting for the consumer. False, and nothing kept, when the queue
    /// is full.
    [[nodiscard]] bool Push(std::span<const std::uint8_t> frame, std::uint64_t arrival);

    /// The oldest frame, which stays valid until `Pop`; null when none comes within the limit.
    [[nodiscard]] const SFrame* Front(std::chrono::milliseconds limit);
    void Pop();

   private:
    std::mutex lock;  // guards `used` only: a slot belongs to one side at a time
    std::condition_variable arrived;
    std::size_t used = 0;
    std::size_t writeAt = 0;  // producer's
    std::size_t readAt = 0;   // consumer's
    std::array<SFrame, slots> ring;
};

}  // namespace frames
