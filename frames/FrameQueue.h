/// A bounded queue of frames from the plug-in's thread to the main thread.
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

/// When a frame arrived.
struct SArrival {
    std::uint64_t number = 0;  ///< 1 for the first counted frame of a stream
    std::chrono::system_clock::time_point utc;
    double elapsed = 0;  ///< seconds since the first counted frame
};

/// A frame, copied from the plug-in's buffer.
struct SFrame {
    std::vector<std::uint8_t> bytes;
    SArrival arrival;
};

/// Has one producer and one consumer. The memory of a slot is reused, so that pushing allocates
/// only if a frame is longer than all earlier ones in its slot.
class CFrameQueue {
   public:
    /// Number of slots: about a second of video, for which a slow disk may cause a delay.
    static constexpr std::size_t slots = 32;

    /// Longest frame that the plug-in delivers, in bytes. A camera's description may claim any
    /// size.
    static constexpr std::size_t longestFrame = std::size_t{32} << 20;

    /// Allocates room for frames of this length, at most `longestFrame`, in every slot. Call it
    /// before the first push. If memory is short it does nothing, and pushing allocates.
    void Reserve(std::size_t frameLength);

    /// Copies a frame into the queue without waiting for the consumer. Returns false, and keeps
    /// nothing, if the queue is full.
    [[nodiscard]] bool Push(std::span<const std::uint8_t> frame, const SArrival& arrival);

    /// Returns the oldest frame, which stays valid until `Pop`, or null if none arrives within the
    /// limit.
    [[nodiscard]] const SFrame* Front(std::chrono::milliseconds limit);
    void Pop();

   private:
    std::mutex lock;  // guards `used` only: a slot belongs to one side at a time
    std::condition_variable arrived;
    std::size_t used = 0;
    std::size_t writeAt = 0;  // used by the producer
    std::size_t readAt = 0;   // used by the consumer
    std::array<SFrame, slots> ring;
};

}  // namespace frames
