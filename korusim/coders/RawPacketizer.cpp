#include "RawPacketizer.h"

#include <algorithm>
#include <cstring>

namespace korusim {
namespace {

constexpr std::size_t sequenceBytes = 2;
constexpr std::size_t lineHeaderBytes = 6;
constexpr std::size_t bytesPerPixel = 2;
/// Most line headers in a datagram; receivers expect no more.
constexpr std::size_t maxLinesPerPacket = 5;
/// The bit of a line header that means that another one follows.
constexpr std::uint32_t continuation = 0x8000;

std::size_t LineBytes(SPictureSize size) { return std::size_t{size.width} * bytesPerPixel; }

std::size_t LinesThatFit(SPictureSize size, std::size_t mtu) {
    const std::size_t fixed = rtpHeaderBytes + sequenceBytes;
    if (mtu <= fixed) return 1;
    const std::size_t fit = (mtu - fixed) / (lineHeaderBytes + LineBytes(size));
    return std::clamp(fit, std::size_t{1}, maxLinesPerPacket);
}

/// |       line length in pixels     |0|       line number         |C|          0            |
void WriteLineHeader(std::uint8_t* to, std::size_t pixels, std::size_t line, bool more) {
    bigendian::Put16(to, static_cast<std::uint32_t>(pixels));
    bigendian::Put16(to + 2, static_cast<std::uint32_t>(line));
    bigendian::Put16(to + 4, more ? continuation : 0);
}

}  // namespace

CRawPacketizer::CRawPacketizer(SPictureSize size, std::size_t mtu)
    : pictureSize(size),
      linesPerPacket(LinesThatFit(size, mtu)),
      packets((size.height + linesPerPacket - 1) / linesPerPacket) {}

std::size_t CRawPacketizer::maxPacketBytes() const noexcept {
    return rtpHeaderBytes + sequenceBytes +
           linesPerPacket * (lineHeaderBytes + LineBytes(pictureSize));
}

std::size_t CRawPacketizer::Build(std::span<const std::uint8_t> picture, std::size_t index,
                                  const SPacketFields& fields, std::span<std::uint8_t> to) const {
    const std::size_t firstLine = index * linesPerPacket;
    const std::size_t lines = std::min(linesPerPacket, pictureSize.height - firstLine);
    std::uint8_t* at = to.data();
    WriteRtpHeader(at, fields, index + 1 == packets);
    at += rtpHeaderBytes;
    bigendian::Put16(at, fields.sequence >> 16);
    at += sequenceBytes;
    for (std::size_t line = 0; line < lines; ++line, at += lineHeaderBytes) {
        WriteLineHeader(at, pictureSize.width, firstLine + line, line + 1 < lines);
    }
    const auto pixels =
        picture.subspan(firstLine * LineBytes(pictureSize), lines * LineBytes(pictureSize));
    std::memcpy(at, pixels.data(), pixels.size());
    return static_cast<std::size_t>(at - to.data()) + pixels.size();
}

}  // namespace korusim
