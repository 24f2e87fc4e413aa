#include "Streaming.h"

#include <cmath>

#include "CameraProbe.h"
#include "Failure.h"
#include "PixelTypeNames.h"
#include "StreamDiagnosis.h"
#include "StreamMeter.h"

namespace hostkit {

void SetFrameRate(COpenCamera& camera, double framesPerSecond, bool withTree) {
    qmx::CVariant rate;
    rate = framesPerSecond;
    if (camera->properties.set("/FrameRate", rate)) return;
    throw CFailure(EExit::Failed, "cannot set the frame rate of camera " + camera.address() + ": " +
                                      RateObstacle(camera.address(), withTree));
}

std::string RateDifference(const COpenCamera& camera, const qmx::cam::IDevice::SFormat& format,
                           double framesPerSecond) {
    constexpr double precision = 1e-4;  // a camera may store fewer digits
    const bool raw = format.pixelType == frames::rawType;
    const double used =
        raw ? PromisedRate(camera, format).value_or(framesPerSecond) : std::round(framesPerSecond);
    if (std::abs(used - framesPerSecond) <= precision * framesPerSecond) return {};
    const auto decimal = [](double rate) {
        return Decimal(rate, rate == std::round(rate) ? 0 : 2);
    };
    return "camera " + camera.address() + (raw ? " uses " : " is asked for ") + decimal(used) +
           " frames/s instead of " + decimal(framesPerSecond) +
           (raw ? "" : ": the rate of a compressed camera is a whole number");
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
