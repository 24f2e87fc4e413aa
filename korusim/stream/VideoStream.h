/// One stream from SETUP to its end: pictures, packets, their times and numbers. It uses neither a
/// socket nor a clock.
///
/// While the packets of one frame are sent, another thread encodes the next frame: encoding takes a
/// good part of the frame time and would delay the packets.
#pragma once

#include <cstdint>
#include <deque>
#include <future>
#include <memory>
#include <optional>
#include <vector>

#include "CameraSettings.h"
#include "Description.h"
#include "FramePacer.h"
#include "FramePipeline.h"
#include "Impairments.h"
#include "Rtcp.h"
#include "Scene.h"

namespace korusim {

struct SStreamTally {
    std::uint64_t frames = 0;   ///< completely sent
    std::uint64_t packets = 0;  ///< before the network impaired them
    std::uint64_t octets = 0;   ///< of payload
};

class CVideoStream {
   public:
    /// `scene` must have the size of the format.
    CVideoStream(const SCameraSettings& settings, const SVideoFormat& format, double rate,
                 const std::shared_ptr<const CScene>& scene, std::uint64_t seed, TimePoint now);

    /// Starts or resumes with a new frame and the next sequence number.
    void Play(TimePoint now);
    /// Abandons the frame in transit.
    void Pause(const PacketSink& sink);
    void SetRate(double framesPerSecond, TimePoint now);

    /// Passes the packets that are due to the sink.
    void Advance(TimePoint now, const PacketSink& sink);
    /// Returns when to call `Advance` again while playing.
    [[nodiscard]] TimePoint nextDue() const { return pacer.nextDue(); }

    [[nodiscard]] std::size_t maxDatagramBytes() const { return sending->maxPacketBytes(); }
    [[nodiscard]] std::uint32_t ssrc() const noexcept { return fields.ssrc; }
    [[nodiscard]] SSenderReport Report(TimePoint now, std::uint64_t ntpNow) const;
    /// Returns the values by which to check a report that arrives now.
    [[nodiscard]] SSentSoFar SentSoFar(std::uint64_t ntpNow) const;
    /// Returns the number of packets that the network lost up to an extended sequence number, or
    /// nothing if that is too long ago.
    [[nodiscard]] std::optional<std::uint64_t> LostUpTo(std::uint32_t sequence) const;
    [[nodiscard]] const SStreamTally& tally() const noexcept { return counts; }
    [[nodiscard]] const SImpairmentTally& impairmentTally() const { return impairments.tally(); }
    [[nodiscard]] std::uint64_t skippedFrames() const noexcept { return pacer.skippedSlots(); }

   private:
    [[nodiscard]] bool SkipsThisFrame();
    void BeginFrame(TimePoint scheduled);
    [[nodiscard]] double SecondsAt(TimePoint when) const;
    [[nodiscard]] std::uint32_t TimestampAt(TimePoint when) const;

    std::unique_ptr<CFramePipeline> sending;  // holds the frame in transit
    std::unique_ptr<CFramePipeline> coding;   // the next one; belongs to the coder until `coded`
    std::future<void> coded;  // after the members that it uses, because its destructor waits for it
    std::launch codingPolicy;
    CFramePacer pacer;
    CImpairments impairments;
    TimePoint epoch;  // the zero of RTP time
    bool skipsFrames;
    std::uint64_t scheduledFrames = 0;
    std::uint32_t firstTimestamp;
    std::uint32_t firstSequence;
    SPacketFields fields;        // of the next packet
    std::size_t nextPacket = 0;  // of the frame in transit
    std::vector<std::uint8_t> datagram;
    SStreamTally counts;
    std::deque<std::uint32_t> latestLost;  // extended sequence numbers, in ascending order
};

}  // namespace korusim
