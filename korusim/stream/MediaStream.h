/// The packets of one stream from SETUP to its end, with their times. A stream uses neither a
/// socket nor a clock: the caller passes the time, which must not go backwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "FramePacer.h"
#include "Impairments.h"
#include "Rtcp.h"

namespace korusim {

struct SStreamTally {
    std::uint64_t frames = 0;   ///< completely sent
    std::uint64_t packets = 0;  ///< before the network impaired them
    std::uint64_t octets = 0;   ///< of payload
    std::uint64_t skippedFrames = 0;
    SImpairmentTally network;
};

/// A compound RTCP packet of the sender.
struct SOutgoingReport {
    std::string bytes;
    std::uint64_t ntp = 0;  ///< the time in it
};

class CMediaStream {
   public:
    virtual ~CMediaStream() = default;

    /// Starts or resumes.
    virtual void Play(TimePoint now) = 0;
    virtual void Pause(const PacketSink& sink) = 0;
    virtual void SetRate(double framesPerSecond, TimePoint now) = 0;

    /// Passes the RTP packets that are due to the sink.
    virtual void Advance(TimePoint now, const PacketSink& sink) = 0;
    /// Returns the sender report that is due, if any. `ntpNow` is the time of day.
    [[nodiscard]] virtual std::optional<SOutgoingReport> Report(TimePoint now,
                                                                std::uint64_t ntpNow) = 0;
    /// Returns when to call `Advance` and `Report` again while playing.
    [[nodiscard]] virtual TimePoint nextDue() const = 0;

    [[nodiscard]] virtual std::size_t maxDatagramBytes() const = 0;
    [[nodiscard]] virtual std::uint32_t ssrc() const = 0;
    /// Returns the values by which to check a report that arrives now.
    [[nodiscard]] virtual SSentSoFar SentSoFar(std::uint64_t ntpNow) const = 0;
    /// Returns the number of packets that the simulated network lost up to an extended sequence
    /// number, or nothing if it is not known.
    [[nodiscard]] virtual std::optional<std::uint64_t> LostUpTo(std::uint32_t sequence) const = 0;
    [[nodiscard]] virtual SStreamTally tally() const = 0;
};

}  // namespace korusim
