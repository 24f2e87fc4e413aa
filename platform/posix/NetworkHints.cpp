#include "NetworkHints.h"

namespace platform {

std::string InitialBufferHint() { return "raise net.core.rmem_default"; }

std::string BufferLimitHint(std::uint64_t bytes) {
    return "sysctl -w net.core.rmem_max=" + std::to_string(bytes) + ", or run with CAP_NET_ADMIN";
}

std::string FirewallHint() {
    return "allow this program to receive UDP in the firewall of this machine";
}

}  // namespace platform
