#include "FrameAssemblers.h"

#include <algorithm>
#include <cstring>

#include "BigEndian.h"

namespace qmx::cam {

CFrameAssembler::Frame CFrameAssembler::Take(const SRtpPacket& packet) noexcept {
    switch (streamType) {
        case EStreamType::Zraw:
            return TakeZraw(packet);
        case EStreamType::Mjls:
            return TakeMjls(packet);
        case EStreamType::Mjpg:
            return TakeMjpg(packet);
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

/// Makes the buffer exactly as large as required, if it is smaller. What is new is zero: nobody's
/// old bytes may ever reach the host in a frame. False when there is no memory. `realloc`, because
/// the first frame of a coded stream grows packet by packet and must not be copied as often.
bool CFrameAssembler::GrowTo(std::uint32_t required) noexcept {
    if (frameCapacity >= required) return true;
    auto* const larger = static_cast<std::uint8_t*>(std::realloc(frameBuffer.get(), required));
    if (larger == nullptr) return false;
    (void)frameBuffer.release();
    frameBuffer.reset(larger);
    std::memset(larger + frameCapacity, 0, required - frameCapacity);
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
/// The doubled length has 16 bits, as everywhere in these cameras: it wraps at 32768, which gets
/// nothing.
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

namespace {

/// A coded frame that outgrows the largest raw frame is no frame: the camera has lost its marker.
constexpr std::uint32_t mjlsFrameMost = 0x2000000;

/// Behind a head of 4 bytes, which is the camera's own, a frame begins with SOI and SOF55.
bool BeginsMjlsFrame(std::span<const std::uint8_t> payload) noexcept {
    constexpr std::size_t headSize = 4;
    constexpr std::uint32_t startOfJpegLs = 0xFFD8FFF7;
    return payload.size() >= headSize + 4 && ReadBig32(&payload[headSize]) == startOfJpegLs;
}

}  // namespace

CFrameAssembler::Frame CFrameAssembler::TakeMjls(const SRtpPacket& packet) noexcept {
    const EVerdict verdict = PassGate(packet, BeginsMjlsFrame(packet.payload));
    if (verdict == EVerdict::Drop) return std::nullopt;
    if (verdict == EVerdict::Begin) frameFill = 0;
    if (packet.payload.size() > mjlsFrameMost - frameFill) return GiveUp();
    const std::uint32_t newFill = frameFill + static_cast<std::uint32_t>(packet.payload.size());
    if (!GrowTo(newFill)) return GiveUp();
    if (!packet.payload.empty()) {
        std::memcpy(frameBuffer.get() + frameFill, packet.payload.data(), packet.payload.size());
    }
    frameFill = newFill;
    if (!packet.marker) return std::nullopt;
    return Finish(frameFill);
}

// The payload of a JPEG stream (RFC 2435 section 3.1).
//
// +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
// | Type-specific |              Fragment Offset                  |
// |      Type     |       Q       |     Width     |     Height    |
// |       Restart Interval        |F|L|  Restart Count            |  Type 64 to 127
// |      MBZ      |   Precision   |            Length             |  first fragment, Q 128 and up
// |  two quantisation tables of 64 bytes; then the coded data     |
struct SJpegFragment {
    std::uint32_t offset;
    std::uint8_t type;  // without the restart bit
    std::uint8_t quality;
    std::uint8_t width;
    std::uint8_t height;
    std::uint16_t restartInterval;
    std::span<const std::uint8_t> tables;  // both, empty when they are not in the packet
    std::span<const std::uint8_t> data;
};

namespace {

constexpr std::size_t jpegMainHeader = 8;
/// The word that holds the fragment offset.
constexpr std::size_t jpegOffsetWord = 4;
constexpr std::uint32_t jpegHeaderRoom = 2048;

/// Fragment offset of a payload that holds its word.
std::uint32_t ReadFragmentOffset(std::span<const std::uint8_t> payload) noexcept {
    return ReadBig32(payload.data()) & 0x00FFFFFF;
}

/// Reads all headers of a fragment; nothing when it is too short for what it announces, or when its
/// tables come in another form than two of 8 bits.
std::optional<SJpegFragment> ReadJpegFragment(std::span<const std::uint8_t> payload) noexcept {
    constexpr std::uint8_t restartBit = 0x40;
    constexpr std::size_t restartHeader = 4;
    constexpr std::size_t tableHeader = 4;
    constexpr std::size_t tablesLength = 2 * sizeof(QuantTable);
    SJpegFragment fragment{};
    if (payload.size() < jpegMainHeader) return std::nullopt;
    fragment.offset = ReadFragmentOffset(payload);
    const std::uint8_t type = payload[4];
    fragment.type = static_cast<std::uint8_t>(type & ~restartBit);
    fragment.quality = payload[5];
    fragment.width = payload[6];
    fragment.height = payload[7];
    fragment.data = payload.subspan(jpegMainHeader);
    if (type >= 64 && type <= 127) {
        if (fragment.data.size() < restartHeader) return std::nullopt;
        fragment.restartInterval = ReadBig16(fragment.data.data());
        fragment.data = fragment.data.subspan(restartHeader);
    }
    if (fragment.offset == 0 && fragment.quality >= 128) {
        if (fragment.data.size() < tableHeader + tablesLength) return std::nullopt;
        if (ReadBig16(&fragment.data[2]) != tablesLength) return std::nullopt;
        fragment.tables = fragment.data.subspan(tableHeader, tablesLength);
        fragment.data = fragment.data.subspan(tableHeader + tablesLength);
    }
    return fragment;
}

}  // namespace

bool CFrameAssembler::BuildJpegHeader(const SJpegFragment& fragment) noexcept {
    // For each frame anew: nothing carries from one to the next.
    if (fragment.tables.empty()) {
        MakeTables(fragment.quality, lqt, cqt);
    } else {
        std::memcpy(lqt, fragment.tables.data(), sizeof(lqt));
        std::memcpy(cqt, fragment.tables.data() + sizeof(lqt), sizeof(cqt));
    }
    // With room for any header from the first frame on, a header never makes the buffer grow.
    if (!GrowTo(jpegHeaderRoom)) return false;
    headerLength = MakeHeaders(
        frameBuffer.get(),
        {fragment.type, fragment.width, fragment.height, fragment.restartInterval}, lqt, cqt);
    return true;
}

CFrameAssembler::Frame CFrameAssembler::TakeMjpg(const SRtpPacket& packet) noexcept {
    // Two rules for short payloads, on purpose. Without the offset word the gate cannot be asked,
    // so that the packet is dropped and the next one fails the sequence test. With the word, but
    // without the rest of its headers, the packet passes the gate and costs its frame below.
    if (packet.payload.size() < jpegOffsetWord) return std::nullopt;
    const EVerdict verdict = PassGate(packet, ReadFragmentOffset(packet.payload) == 0);
    if (verdict == EVerdict::Drop) return std::nullopt;
    if (verdict == EVerdict::Begin) frameFill = 0;
    const auto fragment = ReadJpegFragment(packet.payload);
    if (!fragment) return GiveUp();
    if (fragment->offset == 0 && !BuildJpegHeader(*fragment)) return GiveUp();

    // Can't wrap: an offset has 24 bits, and header and data are smaller yet.
    const std::uint32_t begin = headerLength + fragment->offset;
    const std::uint32_t end = begin + static_cast<std::uint32_t>(fragment->data.size());
    if (!GrowTo(end)) return GiveUp();
    // What an offset jumps over was never sent; it must not show an earlier frame.
    const std::uint32_t written = std::max(frameFill, headerLength);
    if (begin > written) std::memset(frameBuffer.get() + written, 0, begin - written);
    if (!fragment->data.empty()) {
        std::memcpy(frameBuffer.get() + begin, fragment->data.data(), fragment->data.size());
    }
    frameFill = std::max(frameFill, end);
    if (!packet.marker) return std::nullopt;
    return Finish(frameFill);
}

}  // namespace qmx::cam
