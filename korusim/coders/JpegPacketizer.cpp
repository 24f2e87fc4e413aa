#include "JpegPacketizer.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace korusim {
namespace {

constexpr std::size_t mainHeaderBytes = 8;
constexpr std::size_t restartHeaderBytes = 4;
constexpr std::size_t tableHeaderBytes = 4;
/// The data of a packet whose headers alone fill the datagram.
constexpr std::size_t leastRoom = 16;
/// A fragment offset has 24 bits. The largest picture is far smaller.
[[maybe_unused]] constexpr std::size_t dataMost = std::size_t{1} << 24;

constexpr std::uint8_t restartType = 64;
/// Unit of widths and heights, in pixels.
constexpr unsigned sizeUnit = 8;

std::size_t Room(std::size_t mtu, std::size_t headers) {
    return mtu > headers + leastRoom ? mtu - headers : leastRoom;
}

/// | Type-specific |              Fragment Offset                  |
/// |      Type     |       Q       |     Width     |     Height    |
void WriteMainHeader(std::uint8_t* to, std::size_t offset, SPictureSize size,
                     const SJpegSettings& jpeg) {
    const unsigned type = jpeg.subsampling == ESubsampling::Chroma420 ? 1 : 0;
    bigendian::Put32(to, static_cast<std::uint32_t>(offset));
    to[4] = static_cast<std::uint8_t>(jpeg.restartInterval != 0 ? type + restartType : type);
    to[5] = jpeg.quality;
    to[6] = static_cast<std::uint8_t>(size.width / sizeUnit);
    to[7] = static_cast<std::uint8_t>(size.height / sizeUnit);
}

/// |       Restart Interval        |F|L|       Restart Count       |
/// Each packet is both the first and the last of its restart interval, with the highest count: the
/// picture is to be decoded as a whole (RFC 2435, 3.1.7).
void WriteRestartHeader(std::uint8_t* to, std::uint16_t interval) {
    bigendian::Put16(to, interval);
    bigendian::Put16(to + 2, 0xFFFF);
}

/// |      MBZ      |   Precision   |             Length            |
void WriteTables(std::uint8_t* to, const JpegTables& tables) {
    bigendian::Put16(to, 0);  // entries of 8 bits
    bigendian::Put16(to + 2, static_cast<std::uint32_t>(tables.size()));
    std::ranges::copy(tables, to + tableHeaderBytes);
}

}  // namespace

CJpegPacketizer::CJpegPacketizer(SPictureSize size, const SJpegSettings& settings, std::size_t mtu)
    : pictureSize(size),
      jpeg(settings),
      tables(MakeJpegTables(settings.quality)),
      firstRoom(Room(mtu, HeaderBytes(0))),
      room(Room(mtu, HeaderBytes(1))) {}

std::size_t CJpegPacketizer::HeaderBytes(std::size_t index) const noexcept {
    std::size_t bytes = rtpHeaderBytes + mainHeaderBytes;
    if (jpeg.restartInterval != 0) bytes += restartHeaderBytes;
    if (index == 0 && jpeg.tablesInBand()) bytes += tableHeaderBytes + tables.size();
    return bytes;
}

std::size_t CJpegPacketizer::OffsetOf(std::size_t index) const noexcept {
    return index == 0 ? 0 : firstRoom + (index - 1) * room;
}

std::size_t CJpegPacketizer::CountPackets(std::span<const std::uint8_t> data) const noexcept {
    if (data.size() <= firstRoom) return 1;
    return 1 + (data.size() - firstRoom + room - 1) / room;
}

std::size_t CJpegPacketizer::maxPacketBytes() const noexcept {
    return std::max(HeaderBytes(0) + firstRoom, HeaderBytes(1) + room);
}

void CJpegPacketizer::WriteHeaders(std::uint8_t* to, std::size_t offset) const {
    WriteMainHeader(to, offset, pictureSize, jpeg);
    to += mainHeaderBytes;
    if (jpeg.restartInterval != 0) {
        WriteRestartHeader(to, jpeg.restartInterval);
        to += restartHeaderBytes;
    }
    if (offset == 0 && jpeg.tablesInBand()) WriteTables(to, tables);
}

std::size_t CJpegPacketizer::Build(std::span<const std::uint8_t> data, std::size_t index,
                                   const SPacketFields& fields, std::span<std::uint8_t> to) const {
    assert(data.size() <= dataMost);
    const std::size_t begin = OffsetOf(index);
    const std::size_t end = std::min(OffsetOf(index + 1), data.size());
    const std::size_t headers = HeaderBytes(index);
    WriteRtpHeader(to.data(), fields, end == data.size());
    WriteHeaders(&to[rtpHeaderBytes], begin);
    std::memcpy(&to[headers], &data[begin], end - begin);
    return headers + end - begin;
}

}  // namespace korusim
