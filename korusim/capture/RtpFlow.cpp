#include "RtpFlow.h"

#include <algorithm>
#include <cmath>

#include "BigEndian.h"
#include "RtpHeader.h"

namespace korusim {
namespace {

constexpr std::uint8_t jpegPayload = 26;
/// Time, in nanoseconds and in units of the RTP clock, to the next repetition of a flow that is too
/// short to have a frame rate.
constexpr std::int64_t defaultFrameTime = 33'333'333;
constexpr std::int64_t defaultFrameTicks = 3000;

std::optional<SVideoFormat> GuessJpeg(std::span<const std::uint8_t> payload) {
    constexpr std::size_t headerBytes = 8;
    constexpr std::uint32_t offsetMask = 0xFFFFFF;
    if (payload.size() < headerBytes) return std::nullopt;
    if ((bigendian::Get32(payload.data()) & offsetMask) != 0) return std::nullopt;
    return SVideoFormat{
        EEncoding::Jpeg,
        jpegPayload,
        {static_cast<std::uint16_t>(payload[6] * 8), static_cast<std::uint16_t>(payload[7] * 8)}};
}

/// A head of 4 bytes, and the start-of-image marker followed by the start-of-frame marker: its
/// length, the bits per pixel, the height and the width.
std::optional<SVideoFormat> GuessMjls(std::uint8_t type, std::span<const std::uint8_t> payload) {
    constexpr std::uint32_t markers = 0xFFD8FFF7;
    if (payload.size() < 15 || bigendian::Get32(&payload[4]) != markers) return std::nullopt;
    return SVideoFormat{
        EEncoding::Mjls, type, {bigendian::Get16(&payload[13]), bigendian::Get16(&payload[11])}};
}

/// Two bytes, and for each line its length in pixels, its number and a word whose first bit is set
/// before another line; then the pixels, which fill the payload exactly.
std::optional<SVideoFormat> GuessRaw(std::uint8_t type, std::span<const std::uint8_t> payload) {
    constexpr std::size_t lineBytes = 6;
    constexpr unsigned moreLines = 0x8000;
    std::size_t at = 2;
    std::size_t pixels = 0;
    SVideoFormat format{EEncoding::Raw, type, {}};
    for (bool more = true; more; at += lineBytes) {
        if (payload.size() < at + lineBytes) return std::nullopt;
        format.size.width = bigendian::Get16(&payload[at]);
        format.size.height =
            static_cast<std::uint16_t>((bigendian::Get16(&payload[at + 2]) & 0x7FFF) + 1);
        more = (bigendian::Get16(&payload[at + 4]) & moreLines) != 0;
        pixels += format.size.width;
    }
    if (pixels == 0 || payload.size() != at + 2 * pixels) return std::nullopt;
    return format;
}

}  // namespace

std::optional<SRtpHeader> ReadRtpHeader(std::span<const std::uint8_t> datagram) {
    // RTCP has the numbers 192 to 223 in the place of marker and payload type (RFC 5761).
    constexpr unsigned markerBit = 0x80;
    if (datagram.size() < rtpHeaderBytes || datagram[0] >> 6 != 2) return std::nullopt;
    if (datagram[1] >= 192 && datagram[1] <= 223) return std::nullopt;
    SRtpHeader header{static_cast<std::uint8_t>(datagram[1] & ~markerBit),
                      (datagram[1] & markerBit) != 0,
                      bigendian::Get16(&datagram[2]),
                      bigendian::Get32(&datagram[4]),
                      bigendian::Get32(&datagram[8]),
                      {}};
    std::size_t payloadAt = rtpHeaderBytes + std::size_t{datagram[0] & 0xFU} * 4;
    constexpr unsigned extensionBit = 0x10;
    if ((datagram[0] & extensionBit) != 0) {
        if (datagram.size() < payloadAt + 4) return std::nullopt;
        payloadAt += 4 + std::size_t{bigendian::Get16(&datagram[payloadAt + 2])} * 4;
    }
    constexpr unsigned paddingBit = 0x20;
    const std::size_t padding = (datagram[0] & paddingBit) != 0 ? datagram.back() : 0;
    if (datagram.size() < payloadAt + padding) return std::nullopt;
    header.payload = datagram.subspan(payloadAt, datagram.size() - payloadAt - padding);
    return header;
}

std::optional<SVideoFormat> GuessFormat(const SRtpHeader& packet) {
    if (packet.payloadType == jpegPayload) return GuessJpeg(packet.payload);
    const auto mjls = GuessMjls(packet.payloadType, packet.payload);
    return mjls ? mjls : GuessRaw(packet.payloadType, packet.payload);
}

void CRtpFlow::Add(std::int64_t time, std::span<const std::uint8_t> datagram, bool cut) {
    const auto header = ReadRtpHeader(datagram);
    if (!header) {
        ++otherCount;
        return;
    }
    const bool isFirst = packetCount == 0;
    if (isFirst) {
        begin = end = lastFrame = time;
        firstPacket = *header;
        firstPacket.payload = {};
        lastSequence = minSequence = maxSequence = header->sequence;
        lastTimestamp = maxTimestamp = header->timestamp;
        frames = 1;
    }
    const auto step =
        static_cast<std::int16_t>(header->sequence - static_cast<std::uint16_t>(lastSequence));
    inOrder = inOrder && (isFirst || step == 1);
    lastSequence += step;
    minSequence = std::min(minSequence, lastSequence);
    maxSequence = std::max(maxSequence, lastSequence);
    lastTimestamp +=
        static_cast<std::int32_t>(header->timestamp - static_cast<std::uint32_t>(lastTimestamp));
    if (lastTimestamp > maxTimestamp) {
        maxTimestamp = lastTimestamp;
        lastFrame = time;
        ++frames;
    }
    end = std::max(end, time);
    ++packetCount;
    octets += header->payload.size();
    if (cut) ++cutCount;
    maxBytes = std::max(maxBytes, datagram.size());
    if (const auto format = GuessFormat(*header)) {
        const std::uint16_t height = guessed ? guessed->size.height : std::uint16_t{0};
        guessed = format;
        guessed->size.height = std::max(height, format->size.height);
    }
}

CRtpFlow::SStep CRtpFlow::Step() const {
    const auto intervals = static_cast<std::int64_t>(frames) - 1;
    const std::int64_t frameTime =
        intervals > 0 ? (lastFrame - begin) / intervals : defaultFrameTime;
    const std::int64_t ticks = maxTimestamp - std::int64_t{firstPacket.timestamp};
    const std::int64_t frameTicks = intervals > 0 ? ticks / intervals : defaultFrameTicks;
    // The last frame may have taken longer than the time to the next one.
    const std::int64_t time = std::max(lastFrame - begin + frameTime, duration() + 1);
    return {time, static_cast<std::uint32_t>(maxSequence - minSequence + 1),
            static_cast<std::uint32_t>(ticks + frameTicks), static_cast<std::uint32_t>(packetCount),
            static_cast<std::uint32_t>(octets)};
}

std::optional<double> CRtpFlow::FrameRate() const {
    if (frames < 2 || lastFrame <= begin) return std::nullopt;
    constexpr double nanosecondsPerSecond = 1e9;
    const double rate = static_cast<double>(frames - 1) * nanosecondsPerSecond /
                        static_cast<double>(lastFrame - begin);
    const double scale = std::pow(10, 2 - std::floor(std::log10(rate)));
    return std::round(rate * scale) / scale;
}

}  // namespace korusim
