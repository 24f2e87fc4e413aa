/// The host's side of the plug-in: loads it, makes its interface object, finds and opens cameras.
///
/// Knows the plug-in by its one exported function and the registered interface alone, as the real
/// host does; nothing here may include a header of the plug-in's own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qmxcam.h"

namespace qmxhost {

/// Bits of the flag word of `IDevice::Open`.
inline constexpr std::uint32_t openTree = 1;
inline constexpr std::uint32_t openStream = 2;

/// Owns the interface object of the loaded plug-in. Failures are `CFailure`s.
class CPluginHost {
   public:
    /// Loads `file`; an empty name means the plug-in beside the program.
    explicit CPluginHost(const std::string& file);
    ~CPluginHost();
    CPluginHost(const CPluginHost&) = delete;
    CPluginHost& operator=(const CPluginHost&) = delete;

    [[nodiscard]] qmx::cam::IInterface& interfaceObject() const noexcept { return *object; }
    /// Returns all cameras on the network; blocks for the search. A search that cannot run is a
    /// failure.
    [[nodiscard]] std::vector<qmx::cam::SDeviceInfo> Enumerate();
    /// The description of a camera given by address, without a look at the network, or by name.
    [[nodiscard]] qmx::cam::SDeviceInfo Find(const std::string& camera);
    [[nodiscard]] qmx::TSharedPtr<qmx::cam::IDevice> NewDevice();

   private:
    qmx::cam::IInterface* object = nullptr;
};

/// A camera that is open as long as this object lives.
class COpenCamera {
   public:
    COpenCamera(CPluginHost& host, const std::string& camera, std::uint32_t flags);
    ~COpenCamera();
    COpenCamera(const COpenCamera&) = delete;
    COpenCamera& operator=(const COpenCamera&) = delete;

    [[nodiscard]] const std::string& address() const noexcept { return addressText; }
    /// The formats to choose from; a camera without any is a failure.
    [[nodiscard]] std::vector<qmx::cam::IDevice::SFormat> Formats();
    qmx::cam::IDevice* operator->() const noexcept { return device.get(); }
    qmx::cam::IDevice& operator*() const noexcept { return *device; }

   private:
    qmx::TSharedPtr<qmx::cam::IDevice> device;
    std::string addressText;
};

/// Text of a parameter's value; empty when there is no such parameter.
[[nodiscard]] std::string ParameterText(const qmx::cam::SDeviceInfo& info, const char* key);

}  // namespace qmxhost
