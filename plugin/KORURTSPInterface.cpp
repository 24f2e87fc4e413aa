#include "KORURTSPInterface.h"

namespace qmx::cam {

CKORURTSPInterface::CKORURTSPInterface() {
    constexpr EEditLevel editLevel{2};
    interfaceKind = "Ethernet";
    typeId = "KORURTSP";
    displayName = "Ethernet (KORU RTSP)";
    description = "Interface for KORU Ethernet RTP cameras.";
    interfaceId = "KORURTSP";
    integerAttribute = 100;
    firstFlag = 1;
    secondFlag = 1;
    defaultDevice.typeId = "KORURTSP";
    defaultDevice.deviceId = "Default";
    defaultDevice.interfaceId = interfaceId;
    defaultDevice.interfaceKind = interfaceKind;
    defaultDevice.parameters.Add(
        CEntry("IP", "IP Address", "IP address of the connected camera.", editLevel, CVariant("")));
    defaultDevice.parameters.Add(
        CEntry("Name", "Name", "Name of the device.", editLevel, CVariant("")));
}

bool CKORURTSPInterface::EnumerateDevices(DeviceSink sink) {
    {
        TArray<priv::SCaptureDevice> found;
        priv::FindCaptureDevices(found, true);
        for (const priv::SCaptureDevice& camera : found) sink(Describe(camera));
    }
    sink.Release();
    return true;
}

SDeviceInfo CKORURTSPInterface::Describe(const priv::SCaptureDevice& camera) const {
    SDeviceInfo info = defaultDevice;
    info.deviceId = priv::AddressText(camera.address);
    info.parameters["IP"].setValue(CVariant(info.deviceId));
    info.parameters["Name"].setValue(CVariant(camera.name));
    return info;
}

}  // namespace qmx::cam
