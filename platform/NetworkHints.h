/// What a user can do in this system about packets that do not arrive. Each function returns a
/// clause, such as "raise net.core.rmem_default". The plug-in does not use them.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// How to give new sockets a larger receive buffer.
[[nodiscard]] std::string InitialBufferHint();
/// How to permit a receive buffer of this many bytes.
[[nodiscard]] std::string BufferLimitHint(std::uint64_t bytes);
/// How to let this program receive UDP through the firewall of this machine.
[[nodiscard]] std::string FirewallHint();

}  // namespace platform
