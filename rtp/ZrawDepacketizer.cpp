#include "ZrawDepacketizer.h"

#include <algorithm>
#include <cstring>

#include "BigEndian.h"

namespace qmx::cam {
namespace {

// The payload of an uncompressed stream, laid out as in RFC 4175 section 4. The cameras state the
// line length in pixels, and each packet contains whole, consecutive lines of the same length, so
// that the first line header describes them all.
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
/// Largest frame buffer that a line length can request, in bytes.
constexpr std::uint32_t zrawCapacityMost = 0x2000000;

struct SZrawLines {
    std::uint32_t lineLength;  // pixels
    std::uint32_t lineNumber;
    std::uint32_t lineCount;
    std::span<const std::uint8_t> pixels;
};

SZrawLines ParseZrawLines(std::span<const std::uint8_t> payload) noexcept {
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

/// Returns the size of the frame buffer, in bytes. The stream carries no height, so there is room
/// for twice as many lines as a line has pixels. The number of lines has 16 bits, as everywhere in
/// these cameras: it wraps to 0 for a line of 32768 pixels, which gets no buffer.
std::uint32_t ZrawCapacity(std::uint32_t lineLength) noexcept {
    const std::uint32_t lines = (2 * lineLength) & 0xFFFF;
    return std::min(lines * lineLength * bytesPerPixel, zrawCapacityMost);
}

}  // namespace

FinishedFrame CZrawDepacketizer::Add(const SRtpPacket& packet) noexcept {
    if (packet.payload.size() < zrawPayloadShortest) return std::nullopt;
    const SZrawLines lines = ParseZrawLines(packet.payload);
    if (gate.Pass(packet, lines.lineNumber == 0) == EGateVerdict::Drop) return std::nullopt;
    if (!buffer.GrowTo(ZrawCapacity(lines.lineLength))) return gate.GiveUp();

    // 64 bits: the camera states length and number of a line, and their product can be any place.
    const std::uint64_t lineBytes = std::uint64_t{bytesPerPixel} * lines.lineLength;
    const std::uint64_t offset = lineBytes * lines.lineNumber;
    std::uint64_t count = std::min<std::uint64_t>(lineBytes * lines.lineCount, lines.pixels.size());
    count = offset < buffer.capacity() ? std::min(count, buffer.capacity() - offset) : 0;
    std::uint32_t end = 0;
    if (count != 0) {
        std::memcpy(buffer.data() + offset, lines.pixels.data(), static_cast<std::size_t>(count));
        end = static_cast<std::uint32_t>(offset + count);
    }
    if (!packet.marker) return std::nullopt;
    return gate.Finish(buffer.First(end));
}

}  // namespace qmx::cam
