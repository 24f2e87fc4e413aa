#include "MjlsDepacketizer.h"

#include <cstring>

#include "BigEndian.h"

namespace qmx::cam {
namespace {

/// Limit of a frame, in bytes. A coded frame larger than the largest raw frame can only be several
/// frames without a marker.
constexpr std::uint32_t mjlsFrameMost = 0x2000000;

/// A frame begins with a head of 4 bytes, which is the camera's own, then SOI and SOF55.
bool BeginsMjlsFrame(std::span<const std::uint8_t> payload) noexcept {
    constexpr std::size_t headSize = 4;
    constexpr std::uint32_t startOfJpegLs = 0xFFD8FFF7;
    return payload.size() >= headSize + 4 && ReadBig32(&payload[headSize]) == startOfJpegLs;
}

}  // namespace

FinishedFrame CMjlsDepacketizer::Add(const SRtpPacket& packet) noexcept {
    const EGateVerdict verdict = gate.Pass(packet, BeginsMjlsFrame(packet.payload));
    if (verdict == EGateVerdict::Drop) return std::nullopt;
    if (verdict == EGateVerdict::Begin) frameFill = 0;
    if (packet.payload.size() > mjlsFrameMost - frameFill) return gate.GiveUp();
    const std::uint32_t newFill = frameFill + static_cast<std::uint32_t>(packet.payload.size());
    if (!buffer.GrowTo(newFill)) return gate.GiveUp();
    if (!packet.payload.empty()) {
        std::memcpy(buffer.data() + frameFill, packet.payload.data(), packet.payload.size());
    }
    frameFill = newFill;
    if (!packet.marker) return std::nullopt;
    return gate.Finish(buffer.First(frameFill));
}

}  // namespace qmx::cam
