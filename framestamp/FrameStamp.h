/// The stamps that the simulator puts into its pictures, by which a receiver can prove that a frame
/// is exactly the one that was sent. Simulator, small host and tests share this code.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

namespace framestamp {

enum class EStamp {
    Absent,   ///< too short, or without the magic number: not a picture from the simulator
    Damaged,  ///< begins as a stamp, but a part of it or of the picture is wrong
    Good,
};

struct SStamp {
    EStamp state = EStamp::Absent;
    std::uint32_t number = 0;  ///< frame number; valid only if the stamp is good
};

// --- Lossless pictures: raw and JPEG-LS ------------------------------------------
// The first six pixels contain a magic number, the number of the frame and a CRC-32 of everything
// except itself, so that no changed bit goes unnoticed.

/// Number of pixels at the start of the first row that contain the stamp instead of the picture.
inline constexpr std::size_t stampPixels = 6;

/// Writes the stamp over the first pixels of a finished picture of 16-bit little-endian pixels. A
/// picture smaller than the stamp is not changed.
void WriteStamp(std::span<std::uint8_t> picture, std::uint32_t number);

/// Returns true if a picture begins with the magic number of a stamp. Verifies nothing else.
[[nodiscard]] bool HasMagicNumber(std::span<const std::uint16_t> picture);

/// Parses and verifies the stamp of such a picture.
[[nodiscard]] SStamp ReadStamp(std::span<const std::uint8_t> picture);

static_assert(std::endian::native == std::endian::little,
              "the bytes of 16-bit pixels in memory are those on the wire");

/// Returns a picture of 16-bit pixels as the bytes that are sent.
[[nodiscard]] inline std::span<std::uint8_t> BytesOf(std::span<std::uint16_t> picture) {
    return {reinterpret_cast<std::uint8_t*>(picture.data()), picture.size_bytes()};
}

// --- Pictures with lossy coding: JPEG --------------------------------------------------
// No checksum of the pixels survives the coding, and the coded bytes cannot contain a checksum of
// themselves. Therefore the picture has a border of blocks of 8 by 8 pixels, black for 0 and white
// for 1, on JPEG's own grid, where even the coarsest quality preserves them. The upper edge
// contains, from left to right in as many rows of blocks as necessary, 80 bits: a magic number, the
// number of the frame and a CRC-32 of both. The lower edge repeats them. Each row of blocks in
// between begins with the next bit of the CRC, again and again.
//
// Decoding entropy-coded data depends on all the data before. Missing, repeated or foreign bytes
// shift or change what follows, at the latest at the lower edge, and usually cause a decoder error,
// which a receiver has to count too. If rows were replaced exactly by those of another frame, the
// left edge reveals it with a probability of one half for each row of blocks. Only a change of a
// few bits within one block can remain unnoticed; the checksums of the network protect against
// those.

/// One 8-bit sample per pixel, row by row.
template <class Sample>
struct SSamplePlane {
    std::span<Sample> samples;
    std::size_t width;
};

/// Draws the blocks in black and white. A picture without room for both edges is not changed: they
/// need 8 rows of blocks at a width of 160 pixels, and 2 from a width of 640 on.
void WriteBlockStamp(SSamplePlane<std::uint8_t> picture, std::uint32_t number);

/// Parses all blocks in the luminance of a decoded picture. A picture without room for them has no
/// stamp.
[[nodiscard]] SStamp ReadBlockStamp(SSamplePlane<const std::uint8_t> luminance);

}  // namespace framestamp
