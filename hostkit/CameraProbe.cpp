#include "CameraProbe.h"

#include <cstdint>
#include <mutex>

#include "Arbor.h"
#include "Failure.h"
#include "NetworkState.h"
#include "RtspProbe.h"
#include "dns_sd.h"

namespace hostkit {
namespace {

constexpr char serviceType[] = "_koru-ircam._tcp.local";
constexpr std::int32_t browseTime = 100;      // hundredths of a second
constexpr std::uint32_t connectLimit = 2000;  // milliseconds

struct SBrowse {
    std::vector<SAnnouncement> found;
    std::mutex lock;  // the callbacks may come on any thread
};

void OnAnnouncement(std::uint32_t address, const char* name, void* context) {
    auto& browse = *static_cast<SBrowse*>(context);
    std::string dotted;
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&address);
    for (int i = 0; i < 4; ++i) dotted += (i == 0 ? "" : ".") + std::to_string(bytes[i]);
    const std::lock_guard guard(browse.lock);
    for (const SAnnouncement& known : browse.found) {
        if (known.address == dotted) return;
    }
    browse.found.push_back({dotted, name});
}

/// Owns a connection to a node tree.
class CTreeConnection {
   public:
    explicit CTreeConnection(const std::string& address) {
        if (arbConnect(&handle, address.c_str(), 0) != 0) handle = 0;
    }
    CTreeConnection(const CTreeConnection&) = delete;
    CTreeConnection& operator=(const CTreeConnection&) = delete;
    ~CTreeConnection() {
        if (handle != 0) arbDisconnect(handle);
    }
    [[nodiscard]] bool made() const noexcept { return handle != 0; }
    [[nodiscard]] bool Has(const char* path) const { return arbVerify(handle, path) == 0; }
    [[nodiscard]] ETree State() const {
        constexpr const char* enabledPath = ".rtp.caps.config.rtsp.streaming.enabled";
        if (Has(".gcam")) return ETree::OtherKind;
        if (!Has(".rtp")) return ETree::NoRtp;
        if (!Has(enabledPath)) return ETree::Ready;  // such cameras can always stream
        std::uint8_t enabled = 0;
        const bool read = arbGetBool(handle, enabledPath, &enabled) == 0;
        return read && enabled != 0 ? ETree::Ready : ETree::SwitchedOff;
    }
    [[nodiscard]] std::optional<double> FrameRate() const {
        double rate = 0;
        if (arbGetDouble(handle, ".rtp.frequency", &rate) != 0) return std::nullopt;
        return rate;
    }

   private:
    ArbHandle handle = 0;
};

}  // namespace

std::vector<SAnnouncement> AnnouncedCameras() {
    if (!platform::MulticastDnsObstacle(platform::searchDescriptors).empty()) return {};
    SBrowse browse;
    dns_sd(serviceType, OnAnnouncement, &browse, browseTime);
    return std::move(browse.found);
}

STreeProbe ProbeTree(const std::string& address) {
    const CTreeConnection tree(address);
    if (!tree.made()) return {};
    return {tree.State(), tree.FrameRate()};
}

std::string TreeObstacle(ETree state) {
    switch (state) {
        case ETree::Ready:
            return {};
        case ETree::NoConnection:
            return "its node tree (TCP port 4554) accepts no connection; open it by its address "
                   "with --no-tree";
        case ETree::OtherKind:
            return "it is a camera of another kind (.gcam in its node tree), which needs another "
                   "driver";
        case ETree::NoRtp:
            return "it has no RTP streams (no .rtp in its node tree)";
        case ETree::SwitchedOff:
            break;
    }
    return "RTSP streaming is disabled in the camera; enable it there";
}

std::string ConnectObstacle(platform::EConnect result, std::uint16_t port) {
    const std::string number = "TCP port " + std::to_string(port);
    switch (result) {
        case platform::EConnect::Connected:
            return {};
        case platform::EConnect::Refused:
            return "refuses connections to " + number;
        case platform::EConnect::Unreachable:
            return "cannot be reached from this machine";
        case platform::EConnect::NoResponse:
            return "does not respond on " + number;
        case platform::EConnect::Failed:
            break;
    }
    return "could not be tried on " + number;
}

std::string OpenObstacle(const std::string& address, bool withTree) {
    using platform::EConnect;
    const EConnect rtsp = platform::TryConnect(address, rtspPort, connectLimit);
    const EConnect tree =
        withTree ? platform::TryConnect(address, treePort, connectLimit) : EConnect::Connected;
    if (rtsp != EConnect::Connected) {
        return "it " + ConnectObstacle(rtsp, rtspPort) +
               "; check the address, and that the camera is on and in this network";
    }
    if (tree != EConnect::Connected) {
        return "it " + ConnectObstacle(tree, treePort) +
               " (node tree); --no-tree opens it without the node tree";
    }
    CRtspProbe probe(address);
    const auto options = probe.Request("OPTIONS", "*");
    if (!options) {
        return "it accepts connections to TCP port 554, but does not respond; restart the camera";
    }
    return "it offers neither a raw nor a JPEG-LS stream";
}

std::string RateObstacle(const std::string& address, bool withTree) {
    if (!withTree) {
        return "the rate of a raw camera is in its node tree; connect it by leaving out --no-tree";
    }
    const auto tree = platform::TryConnect(address, treePort, connectLimit);
    if (tree == platform::EConnect::Connected) {
        return ProbeTree(address).frameRate
                   ? "the camera's node tree refuses it; try a rate that the camera supports"
                   : "there is no frame rate (.rtp.frequency) in the camera's node tree";
    }
    return "the camera, whose node tree contains the rate, " + ConnectObstacle(tree, treePort) +
           "; restart it";
}

}  // namespace hostkit
