/// Uncompressed frames: 16-bit lines after payload headers as RFC 4175 defines them.
#pragma once

#include "FrameBuffer.h"
#include "FrameGate.h"
#include "RtpPacket.h"

namespace qmx::cam {

/// Places lines by their number. The stream carries neither width nor height: line k begins at byte
/// 2 * L * k, where L is the line length in pixels that each packet states, and the frame ends
/// where its last packet ended. Lines that no packet brings keep what an earlier frame left there.
class CZrawDepacketizer {
   public:
    static constexpr const char* streamName = "ZRAW";

    [[nodiscard]] FinishedFrame Add(const SRtpPacket& packet) noexcept;

   private:
    CFrameGate gate;
    CFrameBuffer buffer;
};

}  // namespace qmx::cam
