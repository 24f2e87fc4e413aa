/// The network of this process as the system sees it: limits and connections. The plug-in does not
/// use it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// Initialises the socket library, on systems that require it. Returns false if the process cannot
/// use sockets.
[[nodiscard]] bool StartSockets() noexcept;

/// Lets this process open as many descriptors as the system allows. The usual limit suffices for
/// only 200 simulated cameras.
void RaiseDescriptorLimit() noexcept;
/// Returns why this process cannot open this many more descriptors; empty if it can.
[[nodiscard]] std::string DescriptorObstacle(std::size_t more);
/// Descriptors that a search by the stand-in of `dns_sd` holds at once.
inline constexpr std::size_t searchDescriptors = 6;
/// Returns why multicast DNS cannot run in this process with this many more descriptors; empty if
/// it can. Avahi aborts the process when it lacks one, so call this before using it.
[[nodiscard]] std::string MulticastDnsObstacle(std::size_t descriptors);
/// Returns whether this process has an open TCP connection to a dotted address, or nothing if the
/// system does not report that.
[[nodiscard]] std::optional<bool> IsConnectedTo(const std::string& address, std::uint16_t port);

}  // namespace platform
