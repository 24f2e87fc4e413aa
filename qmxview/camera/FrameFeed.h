/// The path of a frame from the plug-in's callback to the screen.
///
/// The callback copies a raw frame straight into a picture and leaves. Coded frames take some
/// milliseconds to decode, so they go to a thread that always decodes the newest one. Either way
/// the screen fetches the newest picture when it is ready for one; pictures that it does not fetch
/// are replaced and counted. No side waits for the other.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

#include "FrameStatistics.h"
#include "Mailbox.h"
#include "Recorder.h"
#include "Signal.h"
#include "ViewFrame.h"
#include "qmxcam.h"

namespace qmxview {

struct SFeedCounts {
    frames::SFrameTotals received;
    std::uint64_t shown = 0;        ///< fetched by the screen
    std::uint64_t notShown = 0;     ///< replaced by newer ones, undecodable or empty
    std::uint64_t undecodable = 0;  ///< of those: without a picture
    frames::Clock::duration longestCallback{};
};

/// The context of a frame callback. Must outlive the device that calls it.
class CFrameFeed {
   public:
    /// Notifies `screen` of each picture.
    explicit CFrameFeed(CSignal& screen) : screenSignal(screen) {}
    ~CFrameFeed();
    CFrameFeed(const CFrameFeed&) = delete;
    CFrameFeed& operator=(const CFrameFeed&) = delete;

    // --- The camera's thread -----------------------------------------------------------------
    /// Prepares for frames of a format. Call it before the stream starts. A recording in another
    /// format gets no further frames.
    void Begin(const qmx::cam::IDevice::SFormat& format);
    /// Call it after the stream has stopped.
    void End();
    /// Excludes the time until the next frame from the gaps.
    void ExpectPause() { statistics.ExpectPause(); }
    /// The frame callback.
    static void OnFrame(void* context, const std::uint8_t* frame, std::uint32_t length) noexcept {
        static_cast<CFrameFeed*>(context)->Add({frame, length});
    }

    // --- The screen's thread -----------------------------------------------------------------
    /// Returns the newest picture, valid until the next call, or null if there is no new one.
    [[nodiscard]] const SViewFrame* Fetch();
    /// Counts a picture that is still waiting as not shown. Call it after the last stream.
    void Drain();
    /// Sends each frame to a recorder as well, or, with null, to none. After the call, no frame is
    /// sent to the previous recorder.
    void RecordTo(CRecorder* target);
    /// Returns true while frames are sent to a recorder.
    [[nodiscard]] bool Records();

    // --- Any thread --------------------------------------------------------------------------
    [[nodiscard]] SFeedCounts Counts() const;

   private:
    struct SCodedFrame {
        std::vector<std::uint8_t> bytes;
        frames::SArrival arrival;
        frames::Clock::time_point received;
    };

    void Add(std::span<const std::uint8_t> frame) noexcept;
    void Deliver(std::span<const std::uint8_t> frame, const frames::SArrival& arrival,
                 frames::Clock::time_point received);
    void SendPicture();
    void RunDecoder();
    void Decode(const SCodedFrame& coded);
    void CountUndecodable() noexcept;

    CSignal& screenSignal;
    qmx::cam::IDevice::SFormat format{};
    bool coded = false;
    frames::CFrameStatistics statistics;
    std::uint64_t count = 0;          // accessed only by the callback thread
    frames::Clock::time_point first;  // arrival of the first frame; likewise
    std::atomic<std::uint64_t> shown{0};
    std::atomic<std::uint64_t> notShown{0};
    std::atomic<std::uint64_t> undecodable{0};
    std::atomic<frames::Clock::duration> longestCallback{};
    frames::CMailbox<SCodedFrame> toDecode;
    frames::CMailbox<SViewFrame> pictures;  // written by the callback or, if coded, by the decoder
    std::mutex recorderLock;                // held for the time of a copy
    CRecorder* recorder = nullptr;
    CSignal decoderSignal;
    std::atomic<bool> decoderStops{false};
    std::thread decoder;  // runs from `Begin` to `End` if frames are coded
};

}  // namespace qmxview
