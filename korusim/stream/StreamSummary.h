/// The report on a stream that the simulator prints when it ends.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "MediaStream.h"
#include "Rtcp.h"

namespace korusim {

struct SStreamSummary {
    std::string camera;
    std::uint64_t number = 0;  ///< of the stream at its camera, counted from 1
    SStreamTally video;
    std::uint64_t refusedDatagrams = 0;  ///< by the system
    std::uint64_t senderReports = 0;
    SRtcpTally rtcp;
    std::optional<std::uint64_t>
        lostOfReported;     ///< by the network, up to the end of the last report
    std::string endReason;  ///< a sentence if the camera ended the stream; otherwise empty
    std::uint64_t unknownSenders = 0;
};

/// Returns the summary as lines of text.
[[nodiscard]] std::string FormatSummary(const SStreamSummary& summary);

}  // namespace korusim
