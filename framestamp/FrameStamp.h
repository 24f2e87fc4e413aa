/// The marks that the simulator puts into its pictures, so that a receiver can prove that a frame
/// is exactly the one sent. The one thing that the simulator and the small host share.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

namespace framestamp {

enum class EStamp {
    Absent,   ///< too short, or without the magic number: not a picture of the simulator
    Damaged,  ///< begun as a stamp, but something of it or of the picture is wrong
    Good,
};

struct SStamp {
    EStamp state = EStamp::Absent;
    std::uint32_t number = 0;  ///< frame number; counts only when the stamp is good
};

// --- Pictures that arrive as they were: raw and JPEG-LS ------------------------------------------
// The first six pixels hold a magic number, the frame's number and a CRC-32 of everything but
// itself, so that not one bit of a frame can change unseen.

/// Pixels at the start of the first line that hold the stamp and no picture.
inline constexpr std::size_t stampPixels = 6;

/// Writes the stamp over the first pixels of a finished picture: 16-bit pixels, each little-endian,
/// line after line. A picture smaller than the stamp stays as it is.
void WriteStamp(std::span<std::uint8_t> picture, std::uint32_t number);

/// Reads and verifies the stamp of such a picture.
[[nodiscard]] SStamp ReadStamp(std::span<const std::uint8_t> picture);

static_assert(std::endian::native == std::endian::little,
              "the bytes of 16-bit pixels in memory are those on the wire");

/// A picture of 16-bit pixels as the bytes that travel.
[[nodiscard]] inline std::span<std::uint8_t> BytesOf(std::span<std::uint16_t> picture) {
    return {reinterpret_cast<std::uint8_t*>(picture.data()), picture.size_bytes()};
}

// --- Pictures that a lossy coding changes: JPEG --------------------------------------------------
// No checksum of the pixels survives, and none of the coded bytes can be inside them. So the
// picture carries a frame of blocks of 8 by 8 pixels, black for 0 and white for 1, which lie on
// JPEG's own grid, where even the coarsest quality keeps them apart. A magic number, the frame's
// number and a CRC-32 of both, 80 bits, run along the upper edge from left to right in as many rows
// of blocks as they need, and once more along the lower edge; between them each row of blocks
// begins with the next bit of the CRC, over and over.
//
// A decoder finds its way through entropy-coded data by everything before it. Bytes that are
// missing, doubled or from elsewhere move or change what follows, down to the lower edge at the
// latest, and most often make the decoder itself complain, which a receiver is to count as well.
// Rows that were exchanged for those of another frame without a trace in between have the left edge
// against them, with even odds for each row of blocks. What can hide is a change of a few bits that
// stays within one block; the network's own checksums are there for that.

/// One 8-bit sample for each pixel, line after line.
template <class Sample>
struct SSamplePlane {
    std::span<Sample> samples;
    std::size_t width;
};

/// Draws the blocks in black and white. A picture without room for both edges stays as it is: it
/// takes 8 rows of blocks at a width of 160 pixels, 2 from 640 on.
void WriteBlockStamp(SSamplePlane<std::uint8_t> picture, std::uint32_t number);

/// Reads all blocks of a decoded picture's luminance. One that has no room for them has no stamp.
[[nodiscard]] SStamp ReadBlockStamp(SSamplePlane<const std::uint8_t> luminance);

}  // namespace framestamp
