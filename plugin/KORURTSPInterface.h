/// The interface object, which the host shows as "Ethernet (KORU RTSP)".
#pragma once

#include "CameraDiscovery.h"
#include "qmxcam.h"

namespace qmx::cam {

/// Lists the cameras on the network and creates device objects. The host creates and destroys it
/// through the factory. Its state never changes: each enumeration is a new browse with new probes,
/// and the devices do not depend on it.
class CKORURTSPInterface final : public IInterface {
   public:
    CKORURTSPInterface();
    ~CKORURTSPInterface() override = default;

    /// Returns a new device, closed. It is independent of the interface from then on.
    TSharedPtr<IDevice> CreateDevice() override;

    /// Browses and probes on the calling thread, then calls the sink once for each camera. Always
    /// returns true: finding no camera is not a failure.
    bool EnumerateDevices(DeviceSink sink) override;

   private:
    /// Returns the template with one camera's address and name.
    SDeviceInfo Describe(const priv::SCaptureDevice& camera) const;
};

}  // namespace qmx::cam
