/// `qmxhost shell`: drives one device by commands, one a line, for tests and for curious people.
#pragma once

#include <istream>
#include <string>

#include "Output.h"
#include "PluginHost.h"

namespace qmxhost {

/// Answers each command of `input` by one line of JSON on standard output, until its end.
/// Operations are called exactly as they are asked for, in any order and state: refusing is the
/// device's part.
[[nodiscard]] EExit RunShell(CPluginHost& host, std::istream& input);

/// One line per command, for the help text.
[[nodiscard]] std::string ShellHelp();

}  // namespace qmxhost
