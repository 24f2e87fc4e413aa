/// The frames of a capture, and the packets in them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <variant>

#include "InternetPackets.h"

namespace korusim {

/// One frame of the link layer.
struct SCapturedFrame {
    std::int64_t time = 0;  ///< in nanoseconds since 1970
    int linkType = 0;       ///< as libpcap numbers them
    std::span<const std::uint8_t> bytes;
};

/// Reads the frames of a capture in order.
class CFrameSource {
   public:
    virtual ~CFrameSource() = default;
    /// Returns the next frame, which is valid until the next call; nothing at the end.
    [[nodiscard]] virtual std::optional<SCapturedFrame> Next() = 0;
};

/// Finds the UDP datagrams and TCP segments of a capture.
class CPacketReader {
   public:
    /// Neither of the two, UDP or TCP.
    using Packet = std::variant<std::monostate, SUdpDatagram, STcpSegment>;

    /// The packet is valid until the next call and as long as the frame.
    [[nodiscard]] Packet Read(const SCapturedFrame& frame);
    /// Returns the number of frames so far.
    [[nodiscard]] std::uint64_t frames() const noexcept { return frameCount; }
    [[nodiscard]] std::uint64_t ipv6Frames() const noexcept { return ipv6Count; }
    /// Returns the number of packets of which the end was not captured.
    [[nodiscard]] std::uint64_t cutPackets() const noexcept { return cutCount; }

   private:
    CIpv4Reader ipv4;
    std::uint64_t frameCount = 0;
    std::uint64_t ipv6Count = 0;
    std::uint64_t cutCount = 0;
};

}  // namespace korusim
