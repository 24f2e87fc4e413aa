#include "NetworkHints.h"

#include <filesystem>

#include "Path.h"
#include "Process.h"

namespace platform {

std::string InitialBufferHint() {
    return "set the default size and restart Windows (reg add "
           "HKLM\\SYSTEM\\CurrentControlSet\\Services\\AFD\\Parameters /v DefaultReceiveWindow "
           "/t REG_DWORD /d 1048576)";
}

// The system has no limit.
std::string BufferLimitHint(std::uint64_t) { return InitialBufferHint(); }

std::string FirewallHint() {
    const std::filesystem::path program = ProgramFile();
    return "allow this program to receive UDP in the firewall of this machine, as an "
           "administrator: netsh advfirewall firewall add rule name=\"" +
           Utf8Text(program.stem()) + "\" dir=in action=allow protocol=UDP program=\"" +
           Utf8Text(program) + "\"";
}

}  // namespace platform
