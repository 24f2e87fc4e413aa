#include "CameraDiscovery.h"

#include <cstring>
#include <new>

#include "Arbor.h"
#include "dns_sd.h"

namespace qmx::cam::priv {
namespace {

constexpr char serviceType[] = "_koru-ircam._tcp.local";
constexpr std::int32_t browseArgument = 100;

/// The context of a browse; lives as long as one call of `FindCaptureDevices`.
struct SBrowseContext {
    TArray<SCaptureDevice>* devices;
    CMutex lock;  // the callbacks may come on any thread
    bool outOfMemory = false;
};

/// Holds a `CMutex` for a scope.
class CMutexGuard {
   public:
    explicit CMutexGuard(CMutex& guarded) : mutex(guarded) { mutex.Acquire(CMutex::forEver); }
    CMutexGuard(const CMutexGuard&) = delete;
    CMutexGuard& operator=(const CMutexGuard&) = delete;
    ~CMutexGuard() { mutex.Release(); }

   private:
    CMutex& mutex;
};

/// The first name announced for an address wins.
void OnCameraFound(std::uint32_t address, const char* name, void* browseContext) {
    auto& context = *static_cast<SBrowseContext*>(browseContext);
    const CMutexGuard guard(context.lock);
    for (const SCaptureDevice& known : *context.devices) {
        if (known.address == address) return;
    }
    try {
        context.devices->append(SCaptureDevice{address, name});
    } catch (const std::bad_alloc&) {
        context.outOfMemory = true;  // no exception may pass through the library that calls this
    }
}

/// The connection of one probe.
class CProbeConnection {
   public:
    explicit CProbeConnection(const CString& address) {
        made = arbConnect(&connection, address.c_str(), 0) == 0;
    }
    CProbeConnection(const CProbeConnection&) = delete;
    CProbeConnection& operator=(const CProbeConnection&) = delete;
    ~CProbeConnection() {
        if (made) arbDisconnect(connection);
    }
    [[nodiscard]] bool valid() const noexcept { return made; }
    [[nodiscard]] ArbHandle handle() const noexcept { return connection; }

   private:
    ArbHandle connection = 0;
    bool made = false;
};

/// A text that the node tree library owns; freed at the end of the scope.
struct SNodeText {
    char* text = nullptr;
    bool read = false;

    SNodeText() = default;
    SNodeText(const SNodeText&) = delete;
    SNodeText& operator=(const SNodeText&) = delete;
    ~SNodeText() {
        if (read) arbFreeString(&text);
    }
};

CString ReadString(ArbHandle connection, const char* path) {
    SNodeText value;
    value.read = arbGetString(connection, path, &value.text) == 0;
    return CString(value.read ? value.text : "Error");
}

void LogDetails(ArbHandle connection, const CString& address) {
    const CString hardwareType = ReadString(connection, ".version.hwtype");
    const CString productName = ReadString(connection, ".version.product.name");
    const CString serial = ReadString(connection, ".version.product.serial");
    const CString segment = ReadString(connection, ".caps.config.segment");
    logger().WriteLine(
        "KORURTSP::FindCaptureDevices(%s): hwtype: %s, name: %s, serial: %s, segment: %s.",
        address.c_str(), hardwareType.c_str(), productName.c_str(), serial.c_str(),
        segment.c_str());
}

/// Returns the log line that says why the node tree rules the camera out, or null when it does not.
const char* ReasonToSkip(ArbHandle connection) {
    constexpr char streamingEnabled[] = ".rtp.caps.config.rtsp.streaming.enabled";
    if (arbVerify(connection, ".gcam") == 0) {
        return "KORURTSP::FindCaptureDevices(%s): .gcam tree found, skipping.";
    }
    if (arbVerify(connection, ".rtp") != 0) {
        return "KORURTSP::FindCaptureDevices(%s): .rtp tree not found, skipping.";
    }
    // Cameras without this node can always stream.
    if (arbVerify(connection, streamingEnabled) != 0) return nullptr;
    std::uint8_t enabled = 0;
    if (arbGetBool(connection, streamingEnabled, &enabled) == 0 && enabled != 0) return nullptr;
    return "KORURTSP::FindCaptureDevices(%s): rtsp streaming not enabled, skipping.";
}

/// Probes one camera. Returns true when it is to be dropped.
bool ShouldSkipCaptureDevice(const SCaptureDevice& device, bool logDetails) {
    const CString address = AddressText(device.address);
    CLog& log = logger();
    if (log.verbose()) {
        log.WriteLine("KORURTSP::FindCaptureDevices(): Found device %s.", address.c_str());
    }
    const char* reason = nullptr;
    {
        const CProbeConnection connection(address);
        if (!connection.valid()) {
            log.WriteLine("KORURTSP::FindCaptureDevices(%s): Failed to connect.", address.c_str());
            return true;
        }
        if (logDetails && log.verbose()) LogDetails(connection.handle(), address);
        reason = ReasonToSkip(connection.handle());
    }
    if (reason != nullptr && log.verbose()) log.WriteLine(reason, address.c_str());
    return reason != nullptr;
}

}  // namespace

bool FindCaptureDevices(TArray<SCaptureDevice>& devices, bool logDetails) {
    SBrowseContext context{&devices, {}};
    dns_sd(serviceType, OnCameraFound, &context, browseArgument);
    if (context.outOfMemory) ThrowBadAllocException();
    std::size_t kept = 0;
    for (std::size_t i = 0; i < devices.count(); ++i) {
        if (ShouldSkipCaptureDevice(devices[i], logDetails)) continue;
        if (kept != i) devices[kept] = std::move(devices[i]);
        ++kept;
    }
    if (kept != devices.count()) devices.remove(kept, devices.count() - kept);
    return !devices.empty();
}

CString AddressText(std::uint32_t address) {
    std::uint8_t bytes[4];
    std::memcpy(bytes, &address, sizeof(bytes));
    return CString::FromFormat("%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
}

}  // namespace qmx::cam::priv
