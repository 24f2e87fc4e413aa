/// Splits a JPEG-LS coded frame into RTP datagrams. Their payloads have no header: joined, they are
/// the frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "RtpHeader.h"

namespace korusim {

class CMjlsPacketizer {
   public:
    /// `mtu` is the size of the largest datagram.
    explicit CMjlsPacketizer(std::size_t mtu) : pieceMost(mtu - rtpHeaderBytes) {}

    [[nodiscard]] std::size_t CountPackets(std::span<const std::uint8_t> frame) const noexcept;
    [[nodiscard]] std::size_t maxPacketBytes() const noexcept { return rtpHeaderBytes + pieceMost; }
    /// Writes packet `index` of a frame into a buffer of `maxPacketBytes` and returns its size.
    [[nodiscard]] std::size_t Build(std::span<const std::uint8_t> frame, std::size_t index,
                                    const SPacketFields& fields, std::span<std::uint8_t> to) const;

   private:
    std::size_t pieceMost;
};

}  // namespace korusim
