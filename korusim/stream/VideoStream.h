/// One stream from SETUP to its end: pictures, packets, their time and their numbers. Knows no
/// socket and no clock.
///
/// While the packets of one frame go out, a thread of its own codes the next, because coding takes
/// a good part of the frame time and would hold up the packets.
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
    std::uint64_t frames = 0;   ///< sent to their last packet
    std::uint64_t packets = 0;  ///< before the network impaired them
    std::uint64_t octets = 0;   ///< of payload
};

class CVideoStream {
   public:
    /// `scene` must have the format's size.
    CVideoStream(const SCameraSettings& settings, const SVideoFormat& format, double rate,
                 const std::shared_ptr<const CScene>& scene, std::uint64_t seed, TimePoint now);

    /// Starts or goes on with a new frame, under the next sequence number.
    void Play(TimePoint now);
    /// The frame in transit is given up.
    void Pause(const PacketSink& sink);
    void SetRate(double framesPerSecond, TimePoint now);

    /// Hands what is due to the sink.
    void Advance(TimePoint now, const PacketSink& sink);
    /// When to call `Advance` again while playing.
    [[nodiscard]] TimePoint nextDue() const { return pacer.nextDue(); }

    [[nodiscard]] std::size_t maxDatagramBytes() const { return sending->maxPacketBytes(); }
    [[nodiscard]] std::uint32_t ssrc() const noexcept { return fields.ssrc; }
    [[nodiscard]] SSenderReport Report(TimePoint now, std::uint64_t ntpNow) const;
    /// What a report that comes now is measured by.
    [[nodiscard]] SSentSoFar SentSoFar(std::uint64_t ntpNow) const;
    /// Packets that the network lost up to an extended sequence number; none when that is too long
    /// ago to be told.
    [[nodiscard]] std::optional<std::uint64_t> LostUpTo(std::uint32_t sequence) const;
    [[nodiscard]] const SStreamTally& tally() const noexcept { return counts; }
    [[nodiscard]] const SImpairmentTally& impairmentTally() const { return impairments.tally(); }
    [[nodiscard]] std::uint64_t skippedFrames() const noexcept { return pacer.skippedSlots(); }

   private:
    void BeginFrame(TimePoint scheduled);
    [[nodiscard]] double SecondsAt(TimePoint when) const;
    [[nodiscard]] std::uint32_t TimestampAt(TimePoint when) const;

    std::unique_ptr<CFramePipeline> sending;  // holds the frame in transit
    std::unique_ptr<CFramePipeline> coding;   // the next one, the coder's until `coded`
    std::future<void> coded;                  // behind what it works on, for the end waits for it
    std::launch codingPolicy;
    CFramePacer pacer;
    CImpairments impairments;
    TimePoint epoch;  // RTP time began here
    std::uint32_t firstTimestamp;
    std::uint32_t firstSequence;
    SPacketFields fields;        // of the next packet
    std::size_t nextPacket = 0;  // of the frame in transit
    std::vector<std::uint8_t> datagram;
    SStreamTally counts;
    std::deque<std::uint32_t> latestLost;  // extended sequence numbers, the last one last
};

}  // namespace korusim
