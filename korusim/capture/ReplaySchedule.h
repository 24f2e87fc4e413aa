/// When the packets of a recorded stream are sent again, and what changes in them.
#pragma once

#include <chrono>
#include <cstdint>
#include <span>

#include "RtpFlow.h"

namespace korusim {

/// Maps the times and the fields of recorded packets to those of a replay. In the first round only
/// times change; in later ones sequence numbers, timestamps and counts go on from the last round.
class CReplaySchedule {
   public:
    explicit CReplaySchedule(const CRtpFlow& flow) : begin(flow.firstTime()), step(flow.Step()) {}

    /// Returns when a packet is due after the beginning of the replay. `round` counts from 0. A
    /// sender report may precede the first RTP packet, and is then due at once.
    [[nodiscard]] std::chrono::nanoseconds DueTime(std::int64_t recorded,
                                                   std::uint32_t round) const;
    /// Adapts the header of an RTP packet to a round.
    void AdaptRtp(std::span<std::uint8_t> datagram, std::uint32_t round) const;
    /// Adapts the sender report at the beginning of an RTCP datagram to a round and to the time of
    /// day. `startNtp` is the NTP time of the replay's beginning, less its pauses. The clock of the
    /// camera keeps its difference to the clock of the capture. Returns the new NTP time of the
    /// report, or 0 if the datagram has none.
    [[nodiscard]] std::uint64_t AdaptRtcp(std::span<std::uint8_t> datagram, std::uint32_t round,
                                          std::uint64_t startNtp) const;

   private:
    std::int64_t begin;
    CRtpFlow::SStep step;
};

}  // namespace korusim
