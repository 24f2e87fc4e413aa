/// The way of reaching cameras that the host sees as "Ethernet (KORU RTSP)".
#pragma once

#include "CameraDiscovery.h"
#include "qmxcam.h"

namespace qmx::cam {

/// Reports the cameras on the network and makes device objects. The host makes and ends it through
/// the factory. It holds no state that changes: each enumeration is a new browse with new probes,
/// and devices live on without it.
class CKORURTSPInterface final : public IInterface {
   public:
    CKORURTSPInterface();
    ~CKORURTSPInterface() override = default;

    /// A new device, closed. Its body stands beside the class that it makes.
    TSharedPtr<IDevice> CreateDevice() override;

    /// Browses and probes on the calling thread, then gives the sink one description per camera.
    /// True in every case: finding nothing is no failure.
    bool EnumerateDevices(DeviceSink sink) override;

   private:
    /// The template, filled in for one camera.
    SDeviceInfo Describe(const priv::SCaptureDevice& camera) const;
};

}  // namespace qmx::cam
