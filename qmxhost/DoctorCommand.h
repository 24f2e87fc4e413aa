/// `qmxhost doctor`: finds out, step by step, why a camera does not stream or loses frames.
#pragma once

#include "Commands.h"

namespace qmxhost {

struct SDoctorOptions {
    SCameraChoice camera;
    double seconds = 3;  ///< for each format
    bool json = false;
};

/// Measures the camera, prints the findings and the most likely cause. Returns `Failed` if a step
/// failed.
[[nodiscard]] EExit RunDoctor(CPluginHost& host, const SDoctorOptions& options);

}  // namespace qmxhost
