/// What the shell remembers of the frames that its callback got.
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
    std::uint32_t checksum = 0;  ///< zlib's CRC-32 of all bytes
};

struct SFrameList {
    std::uint64_t count = 0;
    std::vector<SFrameRecord> last;
};

/// The context of the shell's frame callback; must outlive the device. Any thread may call it.
class CShellFrames {
   public:
    /// So many frames are remembered one by one.
    static constexpr std::size_t remembered = 100;

    /// The frame callback.
    static void OnFrame(void* context, const std::uint8_t* frame, std::uint32_t length) noexcept;

    void Clear();
    /// From now on the callback sleeps at each frame; 0 for no more.
    void Block(std::chrono::milliseconds time) noexcept { block = time.count(); }
    /// Waits until so many frames came since the last `Clear`; false when the limit passed first.
    [[nodiscard]] bool WaitFor(std::uint64_t number, std::chrono::milliseconds limit);

    [[nodiscard]] std::uint64_t count() const;
    /// The count and the last frames of one moment.
    [[nodiscard]] SFrameList Frames() const;
    /// The bytes of the last frame; empty when none came since the last `Clear`.
    [[nodiscard]] std::vector<std::uint8_t> LastFrame() const;

   private:
    void Take(std::span<const std::uint8_t> frame);

    std::atomic<std::int64_t> block{0};  // milliseconds
    mutable std::mutex lock;             // guards what follows
    std::condition_variable arrived;
    std::uint64_t number = 0;
    std::deque<SFrameRecord> records;
    std::vector<std::uint8_t> lastFrame;
};

}  // namespace qmxhost
