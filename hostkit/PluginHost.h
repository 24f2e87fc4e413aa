/// Loads the plug-in, creates its interface object, finds and opens cameras.
///
/// Like the real host, it uses only the plug-in's exported function and the registered interface.
/// Nothing here may include a header of the plug-in.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "qmxcam.h"

namespace hostkit {

/// Bits of the flag word of `IDevice::Open`.
inline constexpr std::uint32_t openTree = 1;
inline constexpr std::uint32_t openStream = 2;

/// Owns the interface object of the loaded plug-in. Throws a `CFailure` on failure. `Enumerate`,
/// `Find` and `NewDevice` may be called from several threads; they take turns, because the
/// interface serves one thread at a time.
class CPluginHost {
   public:
    /// Loads `file`; an empty path means the plug-in beside the program, or else the installed
    /// one.
    explicit CPluginHost(const std::filesystem::path& file);
    ~CPluginHost();
    CPluginHost(const CPluginHost&) = delete;
    CPluginHost& operator=(const CPluginHost&) = delete;

    [[nodiscard]] qmx::cam::IInterface& interfaceObject() const noexcept { return *object; }
    /// Returns all cameras on the network. Blocks for the search; fails if it cannot run.
    [[nodiscard]] std::vector<qmx::cam::SDeviceInfo> Enumerate();
    /// Returns the description of a camera. A name needs a search, unless the last one has just
    /// found it; an address does not. If the camera is announced but cannot stream, the failure
    /// names the reason.
    [[nodiscard]] qmx::cam::SDeviceInfo Find(const std::string& camera);
    [[nodiscard]] qmx::TSharedPtr<qmx::cam::IDevice> NewDevice();

   private:
    [[nodiscard]] std::vector<qmx::cam::SDeviceInfo> Search();

    qmx::cam::IInterface* object = nullptr;
    std::mutex lock;                           // held while the interface is used
    std::vector<qmx::cam::SDeviceInfo> found;  // by the last search
    std::chrono::steady_clock::time_point foundAt{};
};

/// A camera that stays open during the lifetime of this object.
class COpenCamera {
   public:
    COpenCamera(CPluginHost& host, const std::string& camera, std::uint32_t flags);
    ~COpenCamera();
    COpenCamera(const COpenCamera&) = delete;
    COpenCamera& operator=(const COpenCamera&) = delete;

    [[nodiscard]] const std::string& address() const noexcept { return addressText; }
    /// Returns the formats of the camera. Fails if it has none.
    [[nodiscard]] std::vector<qmx::cam::IDevice::SFormat> Formats();
    qmx::cam::IDevice* operator->() const noexcept { return device.get(); }
    qmx::cam::IDevice& operator*() const noexcept { return *device; }

   private:
    qmx::TSharedPtr<qmx::cam::IDevice> device;
    std::string addressText;
};

/// Returns the value of a parameter as text; empty if there is no such parameter.
[[nodiscard]] std::string ParameterText(const qmx::cam::SDeviceInfo& info, const char* key);

}  // namespace hostkit
