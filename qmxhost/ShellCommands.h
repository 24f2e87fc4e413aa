/// The commands of `qmxhost shell`, by name: the operations of the interface object and a device.
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Output.h"
#include "PluginHost.h"
#include "ShellFrames.h"

namespace qmxhost {

/// Thrown by a command that is wrong. The text becomes its result.
class CWrongCommand : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The objects that the commands use. The frames outlive the device, whose thread uses them.
struct SShellSession {
    CPluginHost& host;
    CShellFrames frames;
    qmx::TSharedPtr<qmx::cam::IDevice> device;
};

/// The words after the command.
using SArguments = std::vector<std::string>;

struct SShellCommand {
    std::string_view name;
    std::string_view arguments;  ///< for the help and the error message
    std::size_t least;           ///< number of arguments
    std::size_t most;
    bool device;  ///< needs a device
    bool timed;   ///< the result contains the time that it took
    bool rest;    ///< the last of `most` arguments is the rest of the line, including blanks
    Json (*run)(SShellSession& session, const SArguments& arguments);
};

/// All commands, in the order of the help.
[[nodiscard]] std::span<const SShellCommand> ShellCommands() noexcept;

}  // namespace qmxhost
