#include "MjpgDepacketizer.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>

#include "BigEndian.h"

namespace qmx::cam {

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
/// Bytes of the word that contains the fragment offset.
constexpr std::size_t jpegOffsetWord = 4;
constexpr std::uint32_t jpegHeaderRoom = 2048;

/// Returns the fragment offset of a payload of at least `jpegOffsetWord` bytes.
std::uint32_t ParseFragmentOffset(std::span<const std::uint8_t> payload) noexcept {
    return ReadBig32(payload.data()) & 0x00FFFFFF;
}

/// Parses all headers of a fragment. Returns nothing when the payload is too short for the headers
/// that it announces, or when its quantisation tables are not two tables of 8 bits.
std::optional<SJpegFragment> ParseJpegFragment(std::span<const std::uint8_t> payload) noexcept {
    constexpr std::uint8_t restartBit = 0x40;
    constexpr std::size_t restartHeader = 4;
    constexpr std::size_t tableHeader = 4;
    constexpr std::size_t tablesLength = 2 * sizeof(QuantTable);
    SJpegFragment fragment{};
    if (payload.size() < jpegMainHeader) return std::nullopt;
    fragment.offset = ParseFragmentOffset(payload);
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

bool CMjpgDepacketizer::BuildHeader(const SJpegFragment& fragment) noexcept {
    // The tables are made for every frame, so that nothing carries over from one to the next.
    if (fragment.tables.empty()) {
        MakeTables(fragment.quality, lqt, cqt);
    } else {
        std::memcpy(lqt, fragment.tables.data(), sizeof(lqt));
        std::memcpy(cqt, fragment.tables.data() + sizeof(lqt), sizeof(cqt));
    }
    // The buffer has room for any header from the first frame on, so a header never makes it grow.
    if (!buffer.GrowTo(jpegHeaderRoom)) return false;
    headerLength = MakeHeaders(
        buffer.data(), {fragment.type, fragment.width, fragment.height, fragment.restartInterval},
        lqt, cqt);
    return true;
}

FinishedFrame CMjpgDepacketizer::Add(const SRtpPacket& packet) noexcept {
    // Two rules for short payloads, on purpose. Without the offset word the gate cannot be asked,
    // so that the packet is dropped and the next one fails the sequence test. With the word, but
    // without the rest of its headers, the packet passes the gate and costs its frame below.
    if (packet.payload.size() < jpegOffsetWord) return std::nullopt;
    const EGateVerdict verdict = gate.Pass(packet, ParseFragmentOffset(packet.payload) == 0);
    if (verdict == EGateVerdict::Drop) return std::nullopt;
    if (verdict == EGateVerdict::Begin) frameFill = 0;
    const auto fragment = ParseJpegFragment(packet.payload);
    if (!fragment) return gate.GiveUp();
    if (fragment->offset == 0 && !BuildHeader(*fragment)) return gate.GiveUp();

    // Cannot overflow: an offset has 24 bits, and header and data are smaller still.
    const std::uint32_t begin = headerLength + fragment->offset;
    const std::uint32_t end = begin + static_cast<std::uint32_t>(fragment->data.size());
    if (!buffer.GrowTo(end)) return gate.GiveUp();
    // Bytes that an offset skips were never sent. They must not show an earlier frame.
    const std::uint32_t written = std::max(frameFill, headerLength);
    if (begin > written) std::memset(buffer.data() + written, 0, begin - written);
    if (!fragment->data.empty()) {
        std::memcpy(buffer.data() + begin, fragment->data.data(), fragment->data.size());
    }
    frameFill = std::max(frameFill, end);
    if (!packet.marker) return std::nullopt;
    return gate.Finish(buffer.First(frameFill));
}

}  // namespace qmx::cam
