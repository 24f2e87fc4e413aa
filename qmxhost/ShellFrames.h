/// The frames that the shell's callback has received.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <vector>

namespace qmxhost {

struct SFrameRecord {
    std::uint32_t length = 0;
    std::uint32_t checksum = 0;  ///< CRC-32 of all bytes, as zlib computes it
};

struct SFrameList {
    std::uint64_t count = 0;
    std::vector<SFrameRecord> last;
};

/// The context of the shell's frame callback. Must outlive the device. Thread-safe.
class CShellFrames {
   public:
    /// Number of latest frames that are remembered.
    static constexpr std::size_t remembered = 100;

    /// The frame callback.
    static void OnFrame(void* context, const std::uint8_t* frame, std::uint32_t length) noexcept;

    void Clear();
    /// Makes the callback sleep at each frame; 0 ends that.
    void Block(std::chrono::milliseconds time) noexcept { block = time.count(); }
    /// Waits for a number of frames since the last `Clear`. Returns false if the time limit passes
    /// first.
    [[nodiscard]] bool WaitFor(std::uint64_t number, std::chrono::milliseconds limit);

    [[nodiscard]] std::uint64_t count() const;
    /// Returns the count and the last frames, which belong together.
    [[nodiscard]] SFrameList Frames() const;
    /// Returns the bytes of the last frame; empty if none has arrived since the last `Clear`.
    [[nodiscard]] std::vector<std::uint8_t> LastFrame() const;

   private:
    void Take(std::span<const std::uint8_t> frame);

    std::atomic<std::int64_t> block{0};  // milliseconds
    mutable std::mutex lock;             // guards the members below
    std::condition_variable arrived;
    std::uint64_t number = 0;
    std::deque<SFrameRecord> records;
    std::vector<std::uint8_t> lastFrame;
};

}  // namespace qmxhost
