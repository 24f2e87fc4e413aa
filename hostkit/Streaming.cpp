#include "Streaming.h"

#include "Failure.h"
#include "PixelTypeNames.h"

namespace hostkit {

void SetFrameRate(COpenCamera& camera, double framesPerSecond) {
    qmx::CVariant rate;
    rate = framesPerSecond;
    if (camera->properties.set("/FrameRate", rate)) return;
    throw CFailure(EExit::Failed,
                   "cannot set the frame rate of camera " + camera.address() +
                       "; the rate of a raw camera is set in its node tree (TCP port 4554), which "
                       "must be open and allow it");
}

void StartStream(COpenCamera& camera, const qmx::cam::IDevice::SFormat& format,
                 qmx::cam::FrameCallback callback, void* context) {
    (void)camera->SetFormat(format.width, format.height, format.pixelType);  // always true
    if (camera->StartContinuous(callback, context)) return;
    throw CFailure(EExit::Failed, "cannot start " + FormatText(format) + " on camera " +
                                      camera.address() +
                                      ": the line above names the step; a camera serves "
                                      "one stream at a time: is another program using it?");
}

std::string FormatText(const qmx::cam::IDevice::SFormat& format) {
    return std::to_string(format.width) + "x" + std::to_string(format.height) + " " +
           frames::TypeName(format.pixelType);
}

}  // namespace hostkit
