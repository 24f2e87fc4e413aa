/// Limits the size of the frames of a fuzz target.
#pragma once

#include <cstdint>

#include "FuzzInput.h"
#include "RtpPacket.h"

namespace fuzz {

/// The kinds of stream, by their stream types.
enum class EStreamType : std::uint32_t { None, Zraw, Mjls, Mjpg };

/// Limits a line length to 127 pixels and a fragment offset to 16 bits, so that a frame fits into
/// the sanitizer's fast allocator: allocating and filling frames of 16 and 32 MiB would take most
/// of the time. A separate target covers those.
inline void KeepFrameSmall(ExactBytes& datagram, EStreamType type) {
    const auto packet = qmx::cam::ParseRtpPacket(datagram);
    if (!packet || packet->payload.size() < 4) return;
    const std::size_t payloadAt = datagram.size() - packet->payload.size();
    if (type == EStreamType::Zraw) {
        datagram[payloadAt + 2] = 0;
        datagram[payloadAt + 3] &= 0x7F;
    }
    if (type == EStreamType::Mjpg) datagram[payloadAt + 1] = 0;
}

}  // namespace fuzz
