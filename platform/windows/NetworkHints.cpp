#include "NetworkHints.h"

#include <windows.h>

#include <filesystem>

#include "Path.h"
#include "Process.h"

namespace platform {
namespace {

/// Returns the name of the running program without its extension.
std::string ProgramName() {
    wchar_t path[32768];  // the longest path of the system
    const DWORD length = ::GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)));
    return Utf8Text(std::filesystem::path(path, path + length).stem());
}

}  // namespace

std::string InitialBufferHint() {
    return "set the default size and restart Windows (reg add "
           "HKLM\\SYSTEM\\CurrentControlSet\\Services\\AFD\\Parameters /v DefaultReceiveWindow "
           "/t REG_DWORD /d 1048576)";
}

// The system has no limit.
std::string BufferLimitHint(std::uint64_t) { return InitialBufferHint(); }

std::string FirewallHint() {
    const std::string name = ProgramName();
    return "allow this program to receive UDP in the firewall of this machine, as an "
           "administrator: netsh advfirewall firewall add rule name=\"" +
           name + "\" dir=in action=allow protocol=UDP program=\"" +
           Utf8Text(ProgramFolder() / PathFromUtf8(name + ".exe")) + "\"";
}

}  // namespace platform
