/// Words as they lie on the wire. The one place where the receiver turns byte order.
#pragma once

#include <cstdint>

namespace qmx::cam {

/// Reads a big-endian word from two bytes.
[[nodiscard]] constexpr std::uint16_t ReadBig16(const std::uint8_t* from) noexcept {
    return static_cast<std::uint16_t>((from[0] << 8) | from[1]);
}

/// Reads a big-endian word from four bytes.
[[nodiscard]] constexpr std::uint32_t ReadBig32(const std::uint8_t* from) noexcept {
    return (static_cast<std::uint32_t>(ReadBig16(from)) << 16) | ReadBig16(from + 2);
}

/// Writes a word big-endian to two bytes.
constexpr void WriteBig16(std::uint8_t* to, std::uint32_t value) noexcept {
    to[0] = static_cast<std::uint8_t>(value >> 8);
    to[1] = static_cast<std::uint8_t>(value);
}

/// Writes a word big-endian to four bytes.
constexpr void WriteBig32(std::uint8_t* to, std::uint32_t value) noexcept {
    WriteBig16(to, value >> 16);
    WriteBig16(to + 2, value);
}

}  // namespace qmx::cam
