/// The JPEG headers that an RTP stream leaves out (RFC 2435) and its receiver has to make.
#pragma once

#include <cstdint>

namespace qmx::cam {

/// One 8-bit quantisation table, entries in the order in which they are sent.
using QuantTable = std::uint8_t[64];

/// Bytes of the headers without and with a restart interval.
inline constexpr std::uint32_t jpegHeaderLength = 605;
inline constexpr std::uint32_t jpegHeaderLengthWithRestart = 611;

/// What the headers say of a picture.
struct SJpegPicture {
    std::uint8_t type;    ///< RFC 2435 Type without its restart bit: 0 is 4:2:2, else 4:2:0
    std::uint8_t width;   ///< in units of 8 pixels
    std::uint8_t height;  ///< in units of 8 pixels
    std::uint16_t restartInterval;  ///< 0: none
};

/// Tables for a quality of 0 to 127 (RFC 2435 appendix A): the base tables, scaled. Below 1 counts
/// as 1, above 99 as 99. The entries stay in the row order of the base tables, which is how these
/// cameras mean them.
void MakeTables(std::uint8_t quality, QuantTable& lqt, QuantTable& cqt) noexcept;

/// Writes the headers from SOI to SOS (RFC 2435 appendix B) and gives their length. `to` has room
/// for at least `jpegHeaderLengthWithRestart` bytes.
std::uint32_t MakeHeaders(std::uint8_t* to, const SJpegPicture& picture, const QuantTable& lqt,
                          const QuantTable& cqt) noexcept;

}  // namespace qmx::cam
