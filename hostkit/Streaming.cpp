#include "Streaming.h"

#include "CameraProbe.h"
#include "Failure.h"
#include "PixelTypeNames.h"
#include "StreamMeter.h"

namespace hostkit {

void SetFrameRate(COpenCamera& camera, double framesPerSecond, bool withTree) {
    qmx::CVariant rate;
    rate = framesPerSecond;
    if (camera->properties.set("/FrameRate", rate)) return;
    throw CFailure(EExit::Failed, "cannot set the frame rate of camera " + camera.address() + ": " +
                                      RateObstacle(camera.address(), withTree));
}

void StartStream(COpenCamera& camera, const qmx::cam::IDevice::SFormat& format,
                 qmx::cam::FrameCallback callback, void* context) {
    (void)camera->SetFormat(format.width, format.height, format.pixelType);  // always true
    if (camera->StartContinuous(callback, context)) return;
    const SRefusal refusal = WhyNotStarted(camera, format);
    throw CFailure(EExit::Failed, "cannot start " + FormatText(format) + " on camera " +
                                      camera.address() + ": " + refusal.reason + "; " +
                                      refusal.advice);
}

std::string FormatText(const qmx::cam::IDevice::SFormat& format) {
    return std::to_string(format.width) + "x" + std::to_string(format.height) + " " +
           frames::TypeName(format.pixelType);
}

}  // namespace hostkit
