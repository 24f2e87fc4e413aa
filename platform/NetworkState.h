/// What the system knows of this process's network: limits, connections, dropped datagrams. The
/// plug-in does not use it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// Initialises the socket library; does nothing on systems without such a step. Returns false when
/// the process cannot use sockets.
[[nodiscard]] bool StartSockets() noexcept;

/// Returns why this process cannot open `more` further descriptors at a time; empty when it can.
[[nodiscard]] std::string DescriptorObstacle(std::size_t more);
/// Descriptors that a search by multicast DNS holds at a time, with the stand-in of `dns_sd`.
inline constexpr std::size_t searchDescriptors = 6;
/// Returns why multicast DNS cannot run in this process with `descriptors` further descriptors;
/// empty when it can. Avahi ends the process when it lacks one, so that its users ask here first.
[[nodiscard]] std::string MulticastDnsObstacle(std::size_t descriptors);
/// Returns whether this process has a TCP connection to an address in dotted form that neither side
/// has closed; none when the system does not tell.
[[nodiscard]] std::optional<bool> IsConnectedTo(const std::string& address, std::uint16_t port);

/// Datagrams that this system has dropped since it was started because a receiver's buffer was
/// full, of all programs; none where it doesn't count them.
[[nodiscard]] std::optional<std::uint64_t> DroppedDatagrams();
/// The setting that bounds such a buffer, and what lifts the bound, for a person to read.
[[nodiscard]] std::string ReceiveBufferAdvice();

}  // namespace platform
