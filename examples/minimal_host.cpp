// The smallest host that works: loads the plug-in, finds the cameras, opens the first one and
// writes its raw frames to a file.
//
//     minimal_host PLUGIN FILE FRAMES
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "NetworkState.h"
#include "SharedLibrary.h"
#include "qmxcam.h"

namespace {

using namespace qmx;
using namespace qmx::cam;

constexpr char interfaceId[] = "KORURTSP";
constexpr std::uint32_t openNodeTreeAndStreams = 1 | 2;
constexpr SGuid rawPixels = {
    0x44ACBC8C, 0x03B3, 0x4599, {0xB7, 0x84, 0x14, 0xDA, 0xD5, 0xC4, 0xBB, 0xF8}};

struct SRecording {
    std::FILE* file;
    std::atomic<int> framesLeft;
};

/// Called on a thread of the plug-in. The frame is valid only during the call. A real host copies
/// it and returns: while this call writes to the disk, nothing is received.
void OnFrame(void* context, const std::uint8_t* frame, std::uint32_t length) {
    auto& recording = *static_cast<SRecording*>(context);
    if (recording.framesLeft <= 0) return;
    std::fwrite(frame, 1, length, recording.file);
    --recording.framesLeft;
}

/// Streams one camera. Returns false when a step fails; the plug-in's log, on standard error, says
/// which one.
bool Record(IDevice& device, const SDeviceInfo& camera, SRecording& recording) {
    if (!device.Open(camera, openNodeTreeAndStreams)) return false;
    TArray<IDevice::SFormat> formats;
    if (!device.GetFormats(formats)) return false;
    for (const IDevice::SFormat& format : formats) {
        if (!(format.pixelType == rawPixels)) continue;
        device.SetFormat(format.width, format.height, format.pixelType);
        if (!device.StartContinuous(OnFrame, &recording)) return false;
        std::printf("streaming %u x %u\n", format.width, format.height);
        for (int tenths = 0; recording.framesLeft > 0 && tenths < 300; ++tenths) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return device.StopContinuous() && recording.framesLeft == 0;
    }
    return false;  // a compressed camera
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: minimal_host PLUGIN FILE FRAMES\n", stderr);
        return EXIT_FAILURE;
    }
    if (!platform::StartSockets()) return EXIT_FAILURE;
    const platform::CSharedLibrary library(argv[1]);
    const auto init = reinterpret_cast<bool (*)()>(library.Symbol("qmxInitPlugin"));
    if (init == nullptr || !init()) return EXIT_FAILURE;
    IInterface* const koru = interfaceFactory().CreateInterface(interfaceId);
    TArray<SDeviceInfo> cameras;
    koru->EnumerateDevices(IInterface::DeviceSink(
        [](void* list, SDeviceInfo info) { static_cast<TArray<SDeviceInfo>*>(list)->append(info); },
        &cameras));

    SRecording recording{std::fopen(argv[2], "wb"), std::atoi(argv[3])};
    bool recorded = false;
    if (!cameras.empty() && recording.file != nullptr) {
        // Released at the end of the block: the device must go before its interface.
        const TSharedPtr<IDevice> device = koru->CreateDevice();
        recorded = Record(*device, cameras[0], recording);
        device->Close();
    }
    interfaceFactory().DestroyInterface(interfaceId, koru);
    if (recording.file != nullptr && std::fclose(recording.file) != 0) recorded = false;
    return recorded ? EXIT_SUCCESS : EXIT_FAILURE;
}
