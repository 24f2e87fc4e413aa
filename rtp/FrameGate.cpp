#include "FrameGate.h"

namespace qmx::cam {

EGateVerdict CFrameGate::Pass(const SRtpPacket& packet, bool isFrameStart) noexcept {
    const bool sameFrame = !needSync && packet.timestamp == frameTimestamp;
    if (sameFrame) {
        if (packet.sequence != static_cast<std::uint16_t>(prevSeq + 1)) {
            needSync = true;
            return EGateVerdict::Drop;
        }
        prevSeq = packet.sequence;
        return EGateVerdict::Accept;
    }
    needSync = !isFrameStart;
    if (!isFrameStart) return EGateVerdict::Drop;
    frameTimestamp = packet.timestamp;
    prevSeq = packet.sequence;
    return EGateVerdict::Begin;
}

}  // namespace qmx::cam
