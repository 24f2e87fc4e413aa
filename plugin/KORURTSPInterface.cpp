#include "KORURTSPInterface.h"

#include <memory>

#include "KORURTSPDevice.h"

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

TSharedPtr<IDevice> CKORURTSPInterface::CreateDevice() {
    auto device = std::make_unique<CKORURTSPDevice>();
    CReferenceCounter* const counter = CReferenceCounter::Create(device.get());
    return {device.release(), counter, TSharedPtr<IDevice>::deleteByDestructor};
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
