#include "FrameStamp.h"

#include <zlib.h>

namespace korusim {
namespace {

// Byte offsets in the picture; each word is little-endian.
constexpr std::size_t magicAt = 0;
constexpr std::size_t numberAt = 4;
constexpr std::size_t checksumAt = 8;
constexpr std::size_t stampEnd = 12;
static_assert(stampEnd == 2 * stampPixels);

constexpr std::uint32_t magic = 0x55524F4B;  // "KORU" in memory order

void PutWord(std::uint8_t* to, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) to[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::uint32_t GetWord(const std::uint8_t* from) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value |= static_cast<std::uint32_t>(from[i]) << (8 * i);
    return value;
}

std::uint32_t Checksum(std::span<const std::uint8_t> picture) {
    const uLong head = ::crc32_z(0, picture.data(), checksumAt);
    const auto rest = picture.subspan(stampEnd);
    return static_cast<std::uint32_t>(::crc32_z(head, rest.data(), rest.size()));
}

}  // namespace

void WriteStamp(std::span<std::uint8_t> picture, std::uint32_t number) {
    if (picture.size() < stampEnd) return;
    PutWord(&picture[magicAt], magic);
    PutWord(&picture[numberAt], number);
    PutWord(&picture[checksumAt], Checksum(picture));
}

SStamp ReadStamp(std::span<const std::uint8_t> picture) {
    if (picture.size() < stampEnd || GetWord(&picture[magicAt]) != magic) return {};
    const bool good = GetWord(&picture[checksumAt]) == Checksum(picture);
    return {good ? EStamp::Good : EStamp::Damaged, GetWord(&picture[numberAt])};
}

}  // namespace korusim
