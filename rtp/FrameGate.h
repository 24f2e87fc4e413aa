/// Decides which packets belong to a frame. The whole loss policy of the receiver is here.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "RtpPacket.h"

namespace qmx::cam {

/// A finished frame, valid until the next packet is added; nothing while a frame is unfinished. A
/// frame may be empty.
using FinishedFrame = std::optional<std::span<const std::uint8_t>>;

enum class EGateVerdict {
    Drop,    ///< the packet belongs to no frame
    Accept,  ///< the packet continues the frame in assembly
    Begin,   ///< the packet begins a frame; an unfinished one is abandoned
};

/// The gate that every packet passes before its payload is used. There is no reordering, no repair
/// and no partial frame: one missing or late packet costs the rest of its frame, and nothing is
/// accepted before the next frame start. Used by the receive thread alone.
///
/// | needSync | timestamp | packet is              |
/// | true     | any       | a frame start          | begins a frame
/// | true     | any       | not a frame start      | dropped
/// | false    | the same  | the next in sequence   | accepted
/// | false    | the same  | any other              | dropped, needSync set
/// | false    | different | a frame start          | begins a frame
/// | false    | different | not a frame start      | dropped, needSync set
class CFrameGate {
   public:
    /// `isFrameStart`: whether a frame can begin with this packet, which the depacketizer knows.
    [[nodiscard]] EGateVerdict Pass(const SRtpPacket& packet, bool isFrameStart) noexcept;
    /// Ends the frame in assembly with the packet that has passed, and returns it. The next one has
    /// to begin with a frame start.
    [[nodiscard]] FinishedFrame Finish(std::span<const std::uint8_t> frame) noexcept {
        needSync = true;
        return frame;
    }
    /// Ends the frame in assembly without delivery: a packet that has passed turned out unusable.
    [[nodiscard]] FinishedFrame GiveUp() noexcept {
        needSync = true;
        return std::nullopt;
    }

   private:
    bool needSync = true;              // no frame is in assembly
    std::uint32_t frameTimestamp = 0;  // of the frame in assembly
    std::uint16_t prevSeq = 0;         // of the last accepted packet
};

}  // namespace qmx::cam
