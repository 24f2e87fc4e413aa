/// The JPEG headers, which an RTP stream does not carry and its receiver must make (RFC 2435).
#pragma once

#include <cstdint>

namespace qmx::cam {

/// One 8-bit quantisation table, its entries in the order in which they are sent.
using QuantTable = std::uint8_t[64];

/// Lengths of the headers in bytes, without and with a restart interval.
inline constexpr std::uint32_t jpegHeaderLength = 605;
inline constexpr std::uint32_t jpegHeaderLengthWithRestart = 611;

/// The properties of a picture that its headers state.
struct SJpegPicture {
    std::uint8_t type;    ///< RFC 2435 Type without its restart bit: 0 is 4:2:2, any other 4:2:0
    std::uint8_t width;   ///< in units of 8 pixels
    std::uint8_t height;  ///< in units of 8 pixels
    std::uint16_t restartInterval;  ///< 0 for none
};

/// Computes the tables for a quality of 0 to 127 by scaling the base tables (RFC 2435 appendix A).
/// A quality below 1 counts as 1, one above 99 as 99. The entries stay in the row order of the base
/// tables, as in the RFC's own code, and are not brought into zigzag order.
void MakeTables(std::uint8_t quality, QuantTable& lqt, QuantTable& cqt) noexcept;

/// Writes the headers from SOI to SOS (RFC 2435 appendix B) and returns their length. `to` must
/// have room for `jpegHeaderLengthWithRestart` bytes.
std::uint32_t MakeHeaders(std::uint8_t* to, const SJpegPicture& picture, const QuantTable& lqt,
                          const QuantTable& cqt) noexcept;

}  // namespace qmx::cam
