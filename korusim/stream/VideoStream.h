/// The stream of a modelled camera: pictures, packets, their times and numbers.
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
#include "MediaStream.h"
#include "PictureSource.h"
#include "Rtcp.h"

namespace korusim {

class CVideoStream : public CMediaStream {
   public:
    /// The pictures must have the size of the format.
    CVideoStream(const SCameraSettings& settings, const SVideoFormat& format, double rate,
                 const std::shared_ptr<const CPictureSource>& pictures, std::uint64_t seed,
                 TimePoint now);

    /// Starts or resumes with a new frame and the next sequence number.
    void Play(TimePoint now) override;
    /// Abandons the frame in transit.
    void Pause(const PacketSink& sink) override;
    void SetRate(double framesPerSecond, TimePoint now) override;

    void Advance(TimePoint now, const PacketSink& sink) override;
    [[nodiscard]] std::optional<SOutgoingReport> Report(TimePoint now,
                                                        std::uint64_t ntpNow) override;
    [[nodiscard]] TimePoint nextDue() const override;

    [[nodiscard]] std::size_t maxDatagramBytes() const override {
        return sending->maxPacketBytes();
    }
    [[nodiscard]] std::uint32_t ssrc() const override { return fields.ssrc; }
    [[nodiscard]] SSentSoFar SentSoFar(std::uint64_t ntpNow) const override;
    /// Returns nothing if the packet was sent too long ago.
    [[nodiscard]] std::optional<std::uint64_t> LostUpTo(std::uint32_t sequence) const override;
    [[nodiscard]] SStreamTally tally() const override;

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
    double reportSeconds;  // between sender reports; 0 means none
    std::string cname;
    TimePoint nextReport = TimePoint::max();
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
