/// `qmxhost shell`: drives a device by commands, one per line, for tests and for trying things out.
#pragma once

#include <istream>
#include <string>

#include "Output.h"
#include "PluginHost.h"

namespace qmxhost {

/// Prints one line of JSON for each command of `input`, until its end. It calls the operations
/// exactly as requested, in any order and state; it is the device that refuses them.
[[nodiscard]] EExit RunShell(CPluginHost& host, std::istream& input);

/// Returns one line per command, for the help text.
[[nodiscard]] std::string ShellHelp();

}  // namespace qmxhost
