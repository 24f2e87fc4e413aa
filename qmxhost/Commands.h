/// The commands that print a result and end. Each throws a `CFailure` if it fails.
#pragma once

#include <string>
#include <vector>

#include "Output.h"
#include "PluginHost.h"

namespace qmxhost {

/// The camera of a command, and how to open it.
struct SCameraChoice {
    std::string nameOrAddress;
    bool noTree = false;  ///< do not connect the node tree; a raw camera then has no frame rate
};

[[nodiscard]] std::uint32_t OpenFlags(const SCameraChoice& choice) noexcept;

/// Shows the cameras on the network. With `follow` it searches until a stop signal and shows only
/// new cameras and those that have gone.
[[nodiscard]] EExit RunList(CPluginHost& host, bool follow, bool json);

[[nodiscard]] EExit RunFormats(CPluginHost& host, const SCameraChoice& choice, bool json);

/// Shows the named properties, or all if none is named.
[[nodiscard]] EExit RunGet(CPluginHost& host, const SCameraChoice& choice,
                           const std::vector<std::string>& names, bool json);
/// Sets properties given as NAME=VALUE, in this order, then reads and shows them.
[[nodiscard]] EExit RunSet(CPluginHost& host, const SCameraChoice& choice,
                           const std::vector<std::string>& assignments, bool json);

}  // namespace qmxhost
