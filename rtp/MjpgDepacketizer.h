/// JPEG frames (RFC 2435), whose headers the receiver has to make.
#pragma once

#include <cstdint>

#include "FrameBuffer.h"
#include "FrameGate.h"
#include "JpegHeaders.h"
#include "RtpPacket.h"

namespace qmx::cam {

struct SJpegFragment;

/// Makes the JPEG headers of each frame and places the fragments after them, by their offset. The
/// end-of-image marker is in the frame if, and only if, the camera sent it.
class CMjpgDepacketizer {
   public:
    static constexpr const char* streamName = "MJPG";

    [[nodiscard]] FinishedFrame Add(const SRtpPacket& packet) noexcept;

   private:
    [[nodiscard]] bool BuildHeader(const SJpegFragment& fragment) noexcept;

    CFrameGate gate;
    CFrameBuffer buffer;
    std::uint32_t frameFill = 0;     // bytes of the frame so far
    std::uint32_t headerLength = 0;  // bytes of the header made for the frame in assembly
    QuantTable lqt{};
    QuantTable cqt{};
};

}  // namespace qmx::cam
