/// Decides what this receiver sends by RTCP, and when.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "RtcpEventQueue.h"
#include "RtcpPackets.h"

namespace qmx::cam {

/// The reports of one run. No clock paces them: every fourth sender report of the camera is
/// answered by a report, and the end of the run by a last one with a BYE. Used by the RTCP send
/// thread alone.
class CRtcpReporter {
   public:
    CRtcpReporter(const SsrcBytes& ssrc, std::string_view cname) noexcept : packets(ssrc, cname) {}

    /// Returns the packet that introduces this receiver, sent once at the start of the run.
    [[nodiscard]] std::span<const std::uint8_t> InitialReport() const noexcept {
        return packets.InitialReport();
    }
    /// Returns the packet to send for an event, if any; it is valid until the next call. `block` is
    /// the report block as of this event, `now` the seconds since the run began.
    [[nodiscard]] std::optional<std::span<const std::uint8_t>> Handle(const SRtcpEvent& event,
                                                                      const SReportBlock& block,
                                                                      double now) noexcept;

   private:
    CRtcpPackets packets;
    unsigned srCount = 0;  // sender reports since the last report
    std::optional<SRtcpEvent> latest;
};

}  // namespace qmx::cam
