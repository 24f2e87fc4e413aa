/// Finds out why a camera is not listed or does not open. The host interface leaves out cameras
/// that cannot stream, without the reason.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "NetworkCounters.h"

namespace hostkit {

/// TCP ports of a camera.
inline constexpr std::uint16_t rtspPort = 554;
inline constexpr std::uint16_t treePort = 4554;

struct SAnnouncement {
    std::string address;
    std::string name;
};
/// Returns all announced cameras, including those that cannot stream. Blocks for the search.
[[nodiscard]] std::vector<SAnnouncement> AnnouncedCameras();

/// The state of a camera's node tree.
enum class ETree {
    Ready,
    NoConnection,
    OtherKind,    ///< the tree of a camera that needs another driver
    NoRtp,        ///< a camera without RTP streams
    SwitchedOff,  ///< RTSP streaming is disabled in the camera
};
struct STreeProbe {
    ETree state = ETree::NoConnection;
    std::optional<double> frameRate;  ///< that the tree promises
};
[[nodiscard]] STreeProbe ProbeTree(const std::string& address);

/// Returns why a camera with this tree is not listed, and what to do; empty for `Ready`.
[[nodiscard]] std::string TreeObstacle(ETree state);
/// Returns a sentence part such as "refuses connections to TCP port 554"; empty for `Connected`.
[[nodiscard]] std::string ConnectObstacle(platform::EConnect result, std::uint16_t port);
/// Returns why the camera at a dotted address cannot be opened, with or without its node tree.
[[nodiscard]] std::string OpenObstacle(const std::string& address, bool withTree);

/// Returns why the frame rate of a raw camera cannot be read or set, and what to do.
[[nodiscard]] std::string RateObstacle(const std::string& address, bool withTree);

}  // namespace hostkit
