// Uses each class that the plug-in shares with the host, so that the compiler lays it out. It is
// compiled to be looked at, not to be run: see tests/check-msvc.
#include "qmxcam.h"

using namespace qmx;
using namespace qmx::cam;

class CLaidOutDevice : public IDevice {
   public:
    bool Open(SDeviceInfo info, std::uint32_t flags) override;
};

bool CLaidOutDevice::Open(SDeviceInfo, std::uint32_t) {
    IInterfaceFactory& factory = interfaceFactory();
    IInterface* const made = factory.CreateInterface("");
    const TSharedPtr<IDevice> device = made->CreateDevice();
    factory.DestroyInterface("", made);
    TArray<SFormat> formats;
    IGenICam genicam;
    return sizeof(IInterface) + sizeof(IInterface::DeviceSink) + sizeof(CProperties) +
               sizeof(CMutex) + sizeof(CSRWLock) + sizeof(CStopwatch) + sizeof(CLog) +
               sizeof(CReferenceCounter) + sizeof(SPixelType) + sizeof(SDelegateManager) +
               sizeof(TArray<SPixelType>) !=
           0;
}
