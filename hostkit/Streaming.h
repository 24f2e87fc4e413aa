/// Starts streams.
#pragma once

#include <string>

#include "PluginHost.h"
#include "qmxcam.h"

namespace hostkit {

/// Sets the frame rate of an open camera, in frames per second. Throws a `CFailure` if the camera
/// refuses. `withTree` is true if the camera was opened with its node tree.
void SetFrameRate(COpenCamera& camera, double framesPerSecond, bool withTree);

/// Returns a sentence if the rate of a format is another one than that which was set; otherwise
/// empty.
[[nodiscard]] std::string RateDifference(const COpenCamera& camera,
                                         const qmx::cam::IDevice::SFormat& format,
                                         double framesPerSecond);

/// Starts a stream in a format of the camera's catalogue. Throws a `CFailure` that names the reason
/// if that fails.
void StartStream(COpenCamera& camera, const qmx::cam::IDevice::SFormat& format,
                 qmx::cam::FrameCallback callback, void* context);

/// Returns a format as a text such as "640x512 raw".
[[nodiscard]] std::string FormatText(const qmx::cam::IDevice::SFormat& format);

}  // namespace hostkit
