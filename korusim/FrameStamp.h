/// The mark that the simulator puts into each picture, so that a receiver can prove that a frame is
/// exactly the one sent: the first six pixels hold a magic number, the frame's number and a CRC-32
/// of everything but itself. The one thing that the simulator and the small host share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace korusim {

/// Pixels at the start of the first line that hold the stamp and no picture.
inline constexpr std::size_t stampPixels = 6;

enum class EStamp {
    Absent,   ///< too short, or without the magic number: not a picture of the simulator
    Damaged,  ///< the checksum doesn't fit the bytes
    Good,
};

struct SStamp {
    EStamp state = EStamp::Absent;
    std::uint32_t number = 0;  ///< frame number; counts only when the stamp is good
};

/// Writes the stamp over the first pixels of a finished picture: 16-bit pixels, each little-endian,
/// line after line. A picture smaller than the stamp stays as it is.
void WriteStamp(std::span<std::uint8_t> picture, std::uint32_t number);

/// Reads and verifies the stamp of such a picture.
[[nodiscard]] SStamp ReadStamp(std::span<const std::uint8_t> picture);

}  // namespace korusim
