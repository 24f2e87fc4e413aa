/// JPEG-LS frames, cut into packets without payload headers.
#pragma once

#include <cstdint>

#include "FrameBuffer.h"
#include "FrameGate.h"
#include "RtpPacket.h"

namespace qmx::cam {

/// Joins the payloads of a frame. A frame is 4 bytes of the camera's own, then the coded image; it
/// is delivered unchanged.
class CMjlsDepacketizer {
   public:
    static constexpr const char* streamName = "MJLS";

    [[nodiscard]] FinishedFrame Add(const SRtpPacket& packet) noexcept;

   private:
    CFrameGate gate;
    CFrameBuffer buffer;
    std::uint32_t frameFill = 0;  // bytes of the frame so far
};

}  // namespace qmx::cam
