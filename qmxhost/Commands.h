/// The commands that answer and end. Each opens what it needs and raises a `CFailure` when it
/// can't do its work. Ones that look at a camera: see `SCameraChoice`.
#pragma once

#include <string>
#include <vector>

#include "Output.h"
#include "PluginHost.h"

namespace qmxhost {

/// Which camera a command is for, and how it is opened.
struct SCameraChoice {
    std::string nameOrAddress;
    bool noTree = false;  ///< leave the node tree alone: then a raw camera has no frame rate
};

[[nodiscard]] std::uint32_t OpenFlags(const SCameraChoice& choice) noexcept;

/// Cameras on the network. With `follow` goes on looking until a stop signal, and tells only what
/// is new and what is gone.
[[nodiscard]] EExit RunList(CPluginHost& host, bool follow, bool json);

[[nodiscard]] EExit RunFormats(CPluginHost& host, const SCameraChoice& choice, bool json);

/// Shows the named properties, or all when none is named.
[[nodiscard]] EExit RunGet(CPluginHost& host, const SCameraChoice& choice,
                           const std::vector<std::string>& names, bool json);
/// Sets properties given as NAME=VALUE, in their order, and shows what they read as afterwards.
[[nodiscard]] EExit RunSet(CPluginHost& host, const SCameraChoice& choice,
                           const std::vector<std::string>& assignments, bool json);

}  // namespace qmxhost
