#include "FrameStamp.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <optional>

#include "BigEndian.h"

namespace framestamp {
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

bool HasMagicNumber(std::span<const std::uint16_t> picture) {
    return picture.size() >= stampPixels && (picture[0] | std::uint32_t{picture[1]} << 16) == magic;
}

SStamp ReadStamp(std::span<const std::uint8_t> picture) {
    if (picture.size() < stampEnd || GetWord(&picture[magicAt]) != magic) return {};
    const bool good = GetWord(&picture[checksumAt]) == Checksum(picture);
    return {good ? EStamp::Good : EStamp::Damaged, GetWord(&picture[numberAt])};
}

namespace {

constexpr std::size_t blockSide = 8;
constexpr std::uint32_t blockMagic = 0x4B53;  // neither of one colour nor alternating
constexpr std::uint8_t white = 255;

/// Returns the bits of the blocks, first bit first: magic number, frame number, checksum.
using BlockBits = std::array<std::uint8_t, 10>;
constexpr std::size_t numberByte = 2;
constexpr std::size_t checksumByte = 6;
constexpr std::size_t bitCount = 8 * std::tuple_size_v<BlockBits>;
constexpr std::size_t checksumBits = 32;

BlockBits BitsFor(std::uint32_t number) {
    BlockBits bits;
    bigendian::Put16(bits.data(), blockMagic);
    bigendian::Put32(&bits[numberByte], number);
    const uLong checksum = ::crc32_z(0, bits.data(), checksumByte);
    bigendian::Put32(&bits[checksumByte], static_cast<std::uint32_t>(checksum));
    return bits;
}

/// Positions in units of blocks.
struct SBlockGrid {
    std::size_t columns;
    std::size_t rows;
    std::size_t edgeRows;  ///< number that the bits need; 0 if there is no room
};

template <class Sample>
SBlockGrid GridOf(const SSamplePlane<Sample>& picture) {
    const std::size_t height = picture.width != 0 ? picture.samples.size() / picture.width : 0;
    SBlockGrid grid{picture.width / blockSide, height / blockSide, 0};
    if (grid.columns == 0) return grid;
    const std::size_t needed = (bitCount + grid.columns - 1) / grid.columns;
    if (2 * needed <= grid.rows) grid.edgeRows = needed;
    return grid;
}

/// Calls a function for each block that contains a bit, with column, row and the index of the bit.
template <class Visitor>
void ForEachBlock(const SBlockGrid& grid, Visitor visit) {
    for (std::size_t row = 0; row < grid.rows; ++row) {
        const bool upper = row < grid.edgeRows;
        const bool lower = row >= grid.rows - grid.edgeRows;
        if (!upper && !lower) {
            visit(0, row, 8 * checksumByte + row % checksumBits);
            continue;
        }
        const std::size_t edgeRow = upper ? row : row - (grid.rows - grid.edgeRows);
        for (std::size_t column = 0; column < grid.columns; ++column) {
            const std::size_t index = edgeRow * grid.columns + column;
            if (index < bitCount) visit(column, row, index);
        }
    }
}

bool BitAt(const BlockBits& bits, std::size_t index) {
    return (bits[index / 8] >> (7 - index % 8) & 1) != 0;
}

/// Returns the bit of a block by its inner pixels; nothing if they are neither black nor white.
std::optional<bool> ReadBlock(const SSamplePlane<const std::uint8_t>& picture, std::size_t column,
                              std::size_t row) {
    constexpr std::size_t margin = 2;
    constexpr std::size_t inner = blockSide - 2 * margin;
    std::size_t sum = 0;
    for (std::size_t y = 0; y < inner; ++y) {
        for (std::size_t x = 0; x < inner; ++x) {
            sum += picture.samples[(row * blockSide + margin + y) * picture.width +
                                   column * blockSide + margin + x];
        }
    }
    const std::size_t mean = sum / (inner * inner);
    if (mean < white / 4) return false;
    if (mean > white - white / 4) return true;
    return std::nullopt;
}

}  // namespace

void WriteBlockStamp(SSamplePlane<std::uint8_t> picture, std::uint32_t number) {
    const SBlockGrid grid = GridOf(picture);
    if (grid.edgeRows == 0) return;
    const BlockBits bits = BitsFor(number);
    ForEachBlock(grid, [&](std::size_t column, std::size_t row, std::size_t index) {
        const std::uint8_t colour = BitAt(bits, index) ? white : 0;
        for (std::size_t y = 0; y < blockSide; ++y) {
            const std::size_t at = (row * blockSide + y) * picture.width + column * blockSide;
            std::ranges::fill(picture.samples.subspan(at, blockSide), colour);
        }
    });
}

SStamp ReadBlockStamp(SSamplePlane<const std::uint8_t> luminance) {
    const SBlockGrid grid = GridOf(luminance);
    if (grid.edgeRows == 0) return {};
    BlockBits upper{};
    for (std::size_t i = 0; i < bitCount; ++i) {
        const auto bit = ReadBlock(luminance, i % grid.columns, i / grid.columns);
        if (bit.value_or(false)) upper[i / 8] |= static_cast<std::uint8_t>(0x80U >> i % 8);
    }
    if (bigendian::Get16(upper.data()) != blockMagic) return {};
    // All blocks must agree with the number in the upper edge.
    const std::uint32_t number = bigendian::Get32(&upper[numberByte]);
    const BlockBits bits = BitsFor(number);
    bool good = true;
    ForEachBlock(grid, [&](std::size_t column, std::size_t row, std::size_t index) {
        good = good && ReadBlock(luminance, column, row) == BitAt(bits, index);
    });
    return {good ? EStamp::Good : EStamp::Damaged, number};
}

}  // namespace framestamp
