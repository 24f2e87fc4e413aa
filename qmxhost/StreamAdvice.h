/// The sentences about a stream that lost frames or ended early. Pure: from its summary.
#pragma once

#include <string>
#include <vector>

#include "StreamReport.h"

namespace qmxhost {

/// Returns one sentence for each kind of loss, and for a rate below the promised one.
[[nodiscard]] std::vector<std::string> LossMessages(const SStreamSummary& summary);

}  // namespace qmxhost
