// The four properties of a device. The frame rate of a raw camera is a node of its node tree and
// can be written while it streams; that of a compressed camera is part of the setup path, so that a
// new rate requires a new session on a new connection.
#include "Arbor.h"
#include "KORURTSPDevice.h"

namespace qmx::cam {
namespace {

constexpr char frequencyNode[] = ".rtp.frequency";

}  // namespace

void CKORURTSPDevice::RegisterProperties() {
    using GetFunction = bool (CKORURTSPDevice::*)(CVariant&);
    using SetFunction = bool (CKORURTSPDevice::*)(const CVariant&);
    const auto add = [this]<GetFunction get, SetFunction set>(const char* name, EType type) {
        const CProperties::Getter getter(
            [](void* device, CString, CVariant& value) {
                return (static_cast<CKORURTSPDevice*>(device)->*get)(value);
            },
            this);
        const CProperties::Setter setter(
            [](void* device, CString, CVariant value) {
                return (static_cast<CKORURTSPDevice*>(device)->*set)(value);
            },
            this);
        properties.add(name, 1, 3, type, getter, setter);
    };
    using Self = CKORURTSPDevice;
    add.operator()<&Self::GetFrameRate, &Self::SetFrameRate>("/FrameRate", EType::Float64);
    add.operator()<&Self::GetPaused, &Self::SetPaused>("/Paused", EType::Bool);
    add.operator()<&Self::GetInitialFrameRate, &Self::SetInitialFrameRate>("/InitialFrameRate",
                                                                           EType::Float64);
    add.operator()<&Self::GetUseInitialFrameRate, &Self::SetUseInitialFrameRate>(
        "/UseInitialFrameRate", EType::Bool);
}

bool CKORURTSPDevice::GetFrameRate(CVariant& value) {
    if (compressedOnly) {
        value = frameRate.value_or(initialFrameRate);
        return true;
    }
    double rate = 0;
    if (arbGetDouble(GetConnection(), frequencyNode, &rate) != 0) return false;
    value = rate;
    return true;
}

bool CKORURTSPDevice::SetFrameRate(const CVariant& value) {
    const double rate = value.ToFlt64();
    return compressedOnly ? SetCompressedFrameRate(rate) : SetRawFrameRate(rate);
}

/// Pauses the stream during the write; session and receiver stay.
bool CKORURTSPDevice::SetRawFrameRate(double rate) {
    const bool playing = rtsp.IsPlaying();
    if (playing) rtsp.Pause();
    const bool written = arbSetDouble(GetConnection(), frequencyNode, rate, 0) == 0;
    if (playing) rtsp.Play();
    return written;
}

/// Restarts a playing stream with the same callback; the start uses the new rate.
bool CKORURTSPDevice::SetCompressedFrameRate(double rate) {
    if (frameRate == rate) return true;
    ThrowIfInFrameCallback();
    frameRate = rate;
    if (!rtsp.IsPlaying()) return true;
    const FrameCallback callback = frameCallback;
    void* const context = callbackContext;
    StopContinuous();
    rtsp.Close();
    // When this fails, so does the start, at SETUP.
    (void)rtsp.Connect(address.c_str(), rtspPort);
    return StartContinuous(callback, context);
}

bool CKORURTSPDevice::GetPaused(CVariant& value) {
    value = !rtsp.IsPlaying();
    return true;
}

/// Succeeds even when the camera refuses: the getter shows the real state.
bool CKORURTSPDevice::SetPaused(const CVariant& value) {
    const bool pause = value.ToBool();
    if (pause == !rtsp.IsPlaying()) return true;
    if (pause) {
        rtsp.Pause();
    } else if (rtsp.Play()) {
        receiverIsLeftOver = false;
    }
    return true;
}

bool CKORURTSPDevice::GetInitialFrameRate(CVariant& value) {
    value = initialFrameRate;
    return true;
}

bool CKORURTSPDevice::SetInitialFrameRate(const CVariant& value) {
    initialFrameRate = value.ToFlt64();
    return true;
}

bool CKORURTSPDevice::GetUseInitialFrameRate(CVariant& value) {
    value = useInitialFrameRate;
    return true;
}

bool CKORURTSPDevice::SetUseInitialFrameRate(const CVariant& value) {
    useInitialFrameRate = value.ToBool();
    return true;
}

}  // namespace qmx::cam
