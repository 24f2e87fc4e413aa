/// `qmxhost stream`: streams frames, and counts, checks and saves them.
#pragma once

#include <cstdint>
#include <optional>

#include "Commands.h"
#include "FormatChoice.h"
#include "FrameSaver.h"

namespace qmxhost {

struct SStreamOptions {
    SCameraChoice camera;
    SFormatChoice format;
    std::uint64_t count = 0;  ///< 0: no limit
    std::uint64_t skip = 0;   ///< frames at the start that do not count
    double duration = 0;      ///< seconds; 0: no limit
    std::optional<double> rate;
    SSaveOptions save;  ///< an empty target saves nothing
    bool check = false;
    bool strict = false;  ///< missing frames are a failure
    bool json = false;
};

/// Runs until the count, the time or a stop signal ends it, or no more frames arrive. Reports at
/// once that they no longer arrive.
[[nodiscard]] EExit RunStream(CPluginHost& host, const SStreamOptions& options);

}  // namespace qmxhost
