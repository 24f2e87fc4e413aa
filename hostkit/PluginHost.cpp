#include "PluginHost.h"

#include <algorithm>
#include <system_error>

#include "Arguments.h"
#include "CameraProbe.h"
#include "Failure.h"
#include "NetworkState.h"
#include "Path.h"
#include "Process.h"
#include "SharedLibrary.h"

namespace hostkit {
namespace {

namespace fs = std::filesystem;
using qmx::cam::IDevice;
using qmx::cam::SDeviceInfo;

/// The plug-in's file name, its exported function, and the id that it registers.
constexpr const char* pluginName = "qmxcamKORURTSP";
constexpr const char* initFunction = "qmxInitPlugin";
constexpr const char* registeredId = "KORURTSP";
/// Age up to which the result of a search is used for a name that it contains.
constexpr std::chrono::seconds recentSearch{3};

/// The folder of the installed plug-in, relative to that of the installed programs.
constexpr const char* pluginFromProgram = KORU_PLUGIN_FROM_PROGRAM;

/// Returns the file to load: the named one, or the plug-in beside the program, or else the
/// installed one.
fs::path PluginFile(const fs::path& wanted) {
    if (wanted.empty()) {
        const fs::path folder = platform::ProgramFile().parent_path();
        const fs::path name = platform::PluginFileName(pluginName);
        const fs::path installed = (folder / pluginFromProgram / name).lexically_normal();
        std::error_code unknown;
        const bool isInstalled =
            !fs::exists(folder / name, unknown) && fs::exists(installed, unknown);
        return isInstalled ? installed : folder / name;
    }
    // The system would search its library folders for a bare file name.
    return fs::absolute(wanted);
}

[[noreturn]] void FailToLoad(const fs::path& file, const std::string& why) {
    throw CFailure(EExit::Failed, "cannot load plug-in " + platform::Utf8Text(file) + ": " + why +
                                      "; use --plugin FILE to name another file");
}

/// Returns a list such as "Roof (10.0.0.5), Gate (10.0.0.6)".
std::string NamesOf(const std::vector<SDeviceInfo>& cameras) {
    std::string names;
    for (const SDeviceInfo& info : cameras) {
        if (!names.empty()) names += ", ";
        names += Printable(ParameterText(info, "Name")) + " (" + ParameterText(info, "IP") + ")";
    }
    return names.empty() ? "no camera at all" : names;
}

/// Fails for a camera that is announced but not listed, with the reason.
void FailIfSkipped(const std::string& camera) {
    for (const SAnnouncement& announced : AnnouncedCameras()) {
        if (announced.name != camera) continue;
        const std::string why = TreeObstacle(ProbeTree(announced.address).state);
        throw CFailure(EExit::NoCamera,
                       "camera '" + camera + "' is announced at " + announced.address +
                           (why.empty() ? ", but the search has missed it; try again"
                                        : ", but is skipped: " + why));
    }
}

/// Receives one found camera; see `IInterface::DeviceSink`.
void Collect(void* list, SDeviceInfo info) {
    static_cast<std::vector<SDeviceInfo>*>(list)->push_back(std::move(info));
}

}  // namespace

std::string ParameterText(const SDeviceInfo& info, const char* key) {
    for (const qmx::cam::CEntry& entry : info.parameters.entries()) {
        if (entry.key().compare(key) == 0) return Text(entry.value().ToString());
    }
    return {};
}

CPluginHost::CPluginHost(const fs::path& wanted) {
    const fs::path file = PluginFile(wanted);
    const platform::CSharedLibrary library(file);
    if (!library.valid()) FailToLoad(file, library.error());
    const auto init = reinterpret_cast<bool (*)()>(library.Symbol(initFunction));
    if (init == nullptr) FailToLoad(file, std::string("it exports no ") + initFunction);
    if (!init()) FailToLoad(file, std::string(initFunction) + " returned false");
    object = qmx::cam::interfaceFactory().CreateInterface(registeredId);
    if (object == nullptr) {
        FailToLoad(file, std::string("it registers no interface ") + registeredId);
    }
}

CPluginHost::~CPluginHost() { qmx::cam::interfaceFactory().DestroyInterface(registeredId, object); }

std::vector<SDeviceInfo> CPluginHost::Enumerate() {
    const std::lock_guard guard(lock);
    return Search();
}

std::vector<SDeviceInfo> CPluginHost::Search() {
    // If the search cannot run, the plug-in returns the same as for an empty network.
    const std::string obstacle = platform::MulticastDnsObstacle(platform::searchDescriptors);
    if (!obstacle.empty()) {
        throw CFailure(EExit::Failed, "cannot search for cameras: " + obstacle);
    }
    std::vector<SDeviceInfo> cameras;
    if (!object->EnumerateDevices(qmx::cam::IInterface::DeviceSink(Collect, &cameras))) {
        throw CFailure(EExit::Failed, "the plug-in's search for cameras failed");
    }
    found = cameras;
    foundAt = std::chrono::steady_clock::now();
    return cameras;
}

SDeviceInfo CPluginHost::Find(const std::string& camera) {
    const std::lock_guard guard(lock);
    if (IsAddress(camera)) {
        SDeviceInfo info = object->defaultDevice;
        info.deviceId = camera.c_str();
        info.parameters["IP"].setValue(qmx::CVariant(camera.c_str()));
        return info;
    }
    // Several cameras that are opened together need only one search.
    const bool recent = std::chrono::steady_clock::now() - foundAt < recentSearch;
    const bool known = recent && std::ranges::any_of(found, [&](const SDeviceInfo& info) {
                           return ParameterText(info, "Name") == camera;
                       });
    const std::vector<SDeviceInfo> cameras = known ? found : Search();
    const SDeviceInfo* match = nullptr;
    for (const SDeviceInfo& info : cameras) {
        if (ParameterText(info, "Name") != camera) continue;
        if (match != nullptr) {
            throw CFailure(EExit::NoCamera, "several cameras are named '" + camera + "': " +
                                                NamesOf(cameras) + "; use the address instead");
        }
        match = &info;
    }
    if (match != nullptr) return *match;
    FailIfSkipped(camera);
    throw CFailure(EExit::NoCamera, "no camera named '" + camera + "'; found: " + NamesOf(cameras) +
                                        "; a camera can also be named by its address");
}

qmx::TSharedPtr<IDevice> CPluginHost::NewDevice() {
    const std::lock_guard guard(lock);
    return object->CreateDevice();
}

COpenCamera::COpenCamera(CPluginHost& host, const std::string& camera, std::uint32_t flags) {
    const SDeviceInfo info = host.Find(camera);
    addressText = ParameterText(info, "IP");
    device = host.NewDevice();
    if (!device)
        throw CFailure(EExit::Failed, "the plug-in returned no device for camera " + camera);
    if (device->Open(info, flags)) return;
    // The plug-in reports the failed step only in the log.
    throw CFailure(EExit::Failed, "cannot open camera " + camera + ": " +
                                      OpenObstacle(addressText, (flags & openTree) != 0));
}

COpenCamera::~COpenCamera() { device->Close(); }

std::vector<IDevice::SFormat> COpenCamera::Formats() {
    qmx::TArray<IDevice::SFormat> formats;
    if (!device->GetFormats(formats)) {
        throw CFailure(EExit::Failed, "camera " + addressText +
                                          " offers no format that the plug-in knows; --verbose "
                                          "shows how its streams were read");
    }
    return {formats.begin(), formats.end()};
}

}  // namespace hostkit
