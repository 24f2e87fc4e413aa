/// What the system counts and knows about the network: datagrams, receive buffers, interfaces,
/// routes. The plug-in does not use it. A field is empty if the system does not report it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// UDP datagrams of all programs since the start of the system.
struct SUdpCounters {
    std::optional<std::uint64_t> received;  ///< read by programs
    /// Dropped because a receive buffer was full. Windows counts datagrams with errors as well.
    std::optional<std::uint64_t> dropped;
};
[[nodiscard]] SUdpCounters UdpCounters();

/// Sizes of UDP receive buffers in bytes, as a program requests them. On Linux a waiting datagram
/// occupies more than its size.
struct SReceiveBuffers {
    std::optional<std::uint64_t> initial;  ///< of a new socket
    std::optional<std::uint64_t> limit;    ///< that an ordinary program may request
    std::optional<std::uint64_t> granted;  ///< of the largest one in this process
    /// Share of that buffer which is in use, from 0 to 1.
    std::optional<double> filled;
};
[[nodiscard]] SReceiveBuffers ReceiveBuffers();

/// How this machine reaches an address.
struct SRoute {
    std::string localAddress;   ///< dotted IPv4
    std::string interfaceName;  ///< empty if the system does not report it
};
/// Returns the route to a dotted address, or nothing if there is none.
[[nodiscard]] std::optional<SRoute> RouteTo(const std::string& address);

/// Packets of a network interface since its start.
struct SInterfaceCounters {
    std::optional<std::uint64_t> received;
    std::optional<std::uint64_t> dropped;  ///< because the interface had no free buffer
};
[[nodiscard]] SInterfaceCounters InterfaceCounters(const SRoute& route);

/// The result of an attempt to connect by TCP.
enum class EConnect { Connected, Refused, Unreachable, NoResponse, Failed };

/// Connects to a dotted address and disconnects at once. `Failed` means that this process has no
/// socket left, or that the address is none.
[[nodiscard]] EConnect TryConnect(const std::string& address, std::uint16_t port,
                                  std::uint32_t milliseconds);

}  // namespace platform
