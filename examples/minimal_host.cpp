// The smallest host that works: loads the plug-in, finds the cameras, opens the first one and
// writes its raw frames to a file.
//
//     minimal_host PLUGIN FILE FRAMES
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "NetworkState.h"
#include "Path.h"
#include "Process.h"
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
    const std::vector<std::string> arguments = platform::Arguments(argc, argv);
    if (arguments.size() != 3) {
        std::fputs("usage: minimal_host PLUGIN FILE FRAMES\n", stderr);
        return EXIT_FAILURE;
    }
    if (!platform::StartSockets()) return EXIT_FAILURE;
    const platform::CSharedLibrary library(platform::PathFromUtf8(arguments[0]));
    const auto init =
        reinterpret_cast<bool (*)()>(library.valid() ? library.Symbol("qmxInitPlugin") : nullptr);
    if (init == nullptr || !init()) {
        std::fprintf(stderr, "cannot load %s %s\n", arguments[0].c_str(), library.error().c_str());
        return EXIT_FAILURE;
    }
    IInterface* const koru = interfaceFactory().CreateInterface(interfaceId);
    TArray<SDeviceInfo> cameras;
    koru->EnumerateDevices(IInterface::DeviceSink(
        [](void* list, SDeviceInfo info) { static_cast<TArray<SDeviceInfo>*>(list)->append(info); },
        &cameras));

    SRecording recording{platform::OpenFile(platform::PathFromUtf8(arguments[1]), "wb"),
                         std::atoi(arguments[2].c_str())};
    bool recorded = false;
    if (cameras.empty()) std::fputs("no camera found\n", stderr);
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
