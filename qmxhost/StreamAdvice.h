/// The sentences about a stream that lost frames or ended early. Pure: from its summary.
#pragma once

#include <string>
#include <vector>

#include "StreamReport.h"

namespace qmxhost {

/// Returns the number of missing frames of a stream that lasted for this time. So few frames that
/// their intervals show no frame time are compared with the promised rate.
[[nodiscard]] std::uint64_t MissingFrames(const frames::SFrameTotals& totals,
                                          std::optional<double> promisedRate, double seconds);

/// Returns one sentence for each kind of loss, and for a rate below the promised one.
[[nodiscard]] std::vector<std::string> LossMessages(const SStreamSummary& summary);

/// Signs by which a silence can be explained.
struct SSilence {
    bool controlLost = false;  ///< the camera has closed its control connection
    bool unread = false;       ///< datagrams wait in this program, and nothing reads them
    bool anyFrame = false;     ///< frames came before it
    std::optional<std::uint64_t> datagrams;  ///< that programs of this system have read meanwhile
};
/// Returns why no frames arrive, and what to do.
[[nodiscard]] std::string SilenceReason(const SSilence& silence, const std::string& camera);

}  // namespace qmxhost
