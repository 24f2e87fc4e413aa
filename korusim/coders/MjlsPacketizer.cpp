#include "MjlsPacketizer.h"

#include <cstring>

namespace korusim {

std::size_t CMjlsPacketizer::CountPackets(std::span<const std::uint8_t> frame) const noexcept {
    return (frame.size() + pieceMost - 1) / pieceMost;
}

std::size_t CMjlsPacketizer::Build(std::span<const std::uint8_t> frame, std::size_t index,
                                   const SPacketFields& fields, std::span<std::uint8_t> to) const {
    // All pieces have about the same length. With full pieces and a remainder the last datagram
    // would sometimes have only a few bytes, and some receivers discard such a short one.
    const std::size_t packets = CountPackets(frame);
    const std::size_t begin = frame.size() * index / packets;
    const std::size_t end = frame.size() * (index + 1) / packets;
    WriteRtpHeader(to.data(), fields, index + 1 == packets);
    std::memcpy(&to[rtpHeaderBytes], &frame[begin], end - begin);
    return rtpHeaderBytes + end - begin;
}

}  // namespace korusim
