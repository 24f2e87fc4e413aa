#include "FrameAssemblers.h"

#include <algorithm>
#include <cstring>

#include "BigEndian.h"

namespace qmx::cam {

CFrameAssembler::Frame CFrameAssembler::Take(const SRtpPacket& packet) noexcept {
    switch (streamType) {
        case EStreamType::Zraw:
            return TakeZraw(packet);
        default:
            return std::nullopt;
    }
}

CFrameAssembler::EVerdict CFrameAssembler::PassGate(const SRtpPacket& packet,
                                                    bool frameStart) noexcept {
    const bool sameFrame = !needSync && packet.timestamp == frameTimestamp;
    if (sameFrame) {
        if (packet.sequence != static_cast<std::uint16_t>(prevSeq + 1)) {
            needSync = true;
            return EVerdict::Drop;
        }
        prevSeq = packet.sequence;
        return EVerdict::Accept;
    }
    needSync = !frameStart;
    if (!frameStart) return EVerdict::Drop;
    frameTimestamp = packet.timestamp;
    prevSeq = packet.sequence;
    return EVerdict::Begin;
}

/// Makes the buffer at least as large as required. What is new is zero: nobody's old bytes may ever
/// reach the host in a frame. False when there is no memory.
bool CFrameAssembler::GrowTo(std::uint32_t required) noexcept {
    if (frameCapacity >= required) return true;
    decltype(frameBuffer) larger(static_cast<std::uint8_t*>(std::calloc(required, 1)));
    if (larger == nullptr) return false;
    if (frameCapacity != 0) std::memcpy(larger.get(), frameBuffer.get(), frameCapacity);
    frameBuffer = std::move(larger);
    frameCapacity = required;
    return true;
}

CFrameAssembler::Frame CFrameAssembler::Finish(std::uint32_t length) noexcept {
    needSync = true;
    return std::span<const std::uint8_t>(frameBuffer.get(), length);
}

CFrameAssembler::Frame CFrameAssembler::GiveUp() noexcept {
    needSync = true;
    return std::nullopt;
}

namespace {

// The payload of an uncompressed stream, as RFC 4175 section 4 lays it out. The camera counts the
// line length in pixels and sends whole, consecutive lines of one length in each packet, so that
// the first line header speaks for all.
//
// +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
// |   extended sequence number    |         line length           |
// |F|        line number          |C|  continuation word          |
// |  line length, line number and continuation word of the next   |
// |  line, while the word before is not 0; then the pixels        |
constexpr std::uint32_t lineHeadersAt = 2;
constexpr std::uint32_t lineHeaderSize = 6;
constexpr std::uint32_t zrawPayloadShortest = lineHeadersAt + lineHeaderSize;
constexpr std::uint32_t lineHeadersMost = 5;
constexpr std::uint32_t bytesPerPixel = 2;
/// The largest frame buffer that a line length can ask for, in bytes.
constexpr std::uint32_t zrawCapacityMost = 0x2000000;

struct SZrawLines {
    std::uint32_t lineLength;  // pixels
    std::uint32_t lineNumber;
    std::uint32_t lineCount;
    std::span<const std::uint8_t> pixels;
};

SZrawLines ReadZrawLines(std::span<const std::uint8_t> payload) noexcept {
    constexpr std::size_t lengthAt = lineHeadersAt;
    constexpr std::size_t numberAt = lineHeadersAt + 2;
    constexpr std::size_t continuationAt = lineHeadersAt + 4;
    std::uint32_t count = 1;
    std::size_t pixelsAt = zrawPayloadShortest;
    while (payload.size() - pixelsAt > lineHeaderSize && count < lineHeadersMost &&
           ReadBig16(&payload[continuationAt + lineHeaderSize * (count - 1)]) != 0) {
        ++count;
        pixelsAt += lineHeaderSize;
    }
    return {ReadBig16(&payload[lengthAt]), ReadBig16(&payload[numberAt]) & 0x7FFFu, count,
            payload.subspan(pixelsAt)};
}

/// Nobody tells the frame's height, so there is room for twice as many lines as a line has pixels.
/// The doubled length has 16 bits, as everywhere in these cameras: lengths from 32768 on get little
/// or nothing.
std::uint32_t ZrawCapacity(std::uint32_t lineLength) noexcept {
    const std::uint32_t lines = (2 * lineLength) & 0xFFFF;
    return std::min(lines * lineLength * bytesPerPixel, zrawCapacityMost);
}

}  // namespace

CFrameAssembler::Frame CFrameAssembler::TakeZraw(const SRtpPacket& packet) noexcept {
    if (packet.payload.size() < zrawPayloadShortest) return std::nullopt;
    const SZrawLines lines = ReadZrawLines(packet.payload);
    if (PassGate(packet, lines.lineNumber == 0) == EVerdict::Drop) return std::nullopt;
    if (!GrowTo(ZrawCapacity(lines.lineLength))) return GiveUp();

    // 64 bits: length and number of a line are the camera's word and may name any place.
    const std::uint64_t lineBytes = std::uint64_t{bytesPerPixel} * lines.lineLength;
    const std::uint64_t offset = lineBytes * lines.lineNumber;
    std::uint64_t count = std::min<std::uint64_t>(lineBytes * lines.lineCount, lines.pixels.size());
    count = offset < frameCapacity ? std::min(count, frameCapacity - offset) : 0;
    std::uint32_t end = 0;
    if (count != 0) {
        std::memcpy(frameBuffer.get() + offset, lines.pixels.data(),
                    static_cast<std::size_t>(count));
        end = static_cast<std::uint32_t>(offset + count);
    }
    if (!packet.marker) return std::nullopt;
    return Finish(end);
}

}  // namespace qmx::cam
