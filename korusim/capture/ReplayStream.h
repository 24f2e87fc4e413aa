/// The stream of a recorded camera: its packets as they were captured.
///
/// While the packets of one batch are sent, another thread reads the next batch from the file.
#pragma once

#include <future>
#include <memory>

#include "MediaStream.h"
#include "ReplayReader.h"
#include "ReplaySchedule.h"

namespace korusim {

class CReplayStream : public CMediaStream {
   public:
    CReplayStream(FrameSourceMaker makeSource, std::shared_ptr<const SRecordedStream> recorded,
                  bool loop);
    ~CReplayStream() override { reader.Stop(); }

    /// Starts with the first packet, or resumes with the next one.
    void Play(TimePoint now) override;
    void Pause(const PacketSink&) override {}
    /// The rate is that of the recording.
    void SetRate(double, TimePoint) override {}

    void Advance(TimePoint now, const PacketSink& sink) override;
    [[nodiscard]] std::optional<SOutgoingReport> Report(TimePoint now,
                                                        std::uint64_t ntpNow) override;
    [[nodiscard]] TimePoint nextDue() const override;

    [[nodiscard]] std::size_t maxDatagramBytes() const override {
        return stream->flow.maxDatagramBytes();
    }
    [[nodiscard]] std::uint32_t ssrc() const override { return stream->flow.first().ssrc; }
    [[nodiscard]] SSentSoFar SentSoFar(std::uint64_t ntpNow) const override;
    [[nodiscard]] std::optional<std::uint64_t> LostUpTo(std::uint32_t) const override {
        return std::nullopt;
    }
    [[nodiscard]] SStreamTally tally() const override { return counts; }

   private:
    void ReadAhead();
    void GoToPacket(TimePoint now);
    [[nodiscard]] const SReplayPacket* Next() const;
    [[nodiscard]] TimePoint DueTime(const SReplayPacket& packet) const;
    void Count(std::span<const std::uint8_t> datagram);

    std::shared_ptr<const SRecordedStream> stream;
    CReplaySchedule schedule;
    CReplayReader reader;  // belongs to the reading thread until `filled`, as does `following`
    SReplayBatch batch;    // in transit
    SReplayBatch following;
    std::future<void>
        filled;  // after the members that it uses, because its destructor waits for it
    std::size_t position = 0;       // of the next packet in the batch
    TimePoint retryAt{};            // while the next batch is not ready
    TimePoint begin{};              // of the replay, moved by its pauses
    bool starting = true;           // the next packet determines `begin`
    std::uint32_t highestSequence;  // that was sent, extended
    SStreamTally counts;
};

}  // namespace korusim
