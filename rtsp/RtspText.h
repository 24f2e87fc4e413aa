/// Text functions for RTSP and SDP, without side effects and independent of the locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qmx::cam {

/// Returns the pieces between delimiters, in order. Each character of `delimiters` is a delimiter.
/// Empty pieces are dropped, so that adjacent delimiters count as one.
[[nodiscard]] std::vector<std::string> Split(std::string_view text, std::string_view delimiters);

/// Parses a number as `strtoul` does in base 10 with the 32-bit unsigned long of 64-bit Windows:
/// skips white space, accepts a sign, stops at the first other character. Returns 0 when there is
/// no digit, 4294967295 when the number is too large, and the negated number, modulo 2^32, after a
/// minus sign.
[[nodiscard]] std::uint32_t ParseUnsigned(std::string_view text) noexcept;

/// Returns true for the ASCII digits, in every locale.
[[nodiscard]] constexpr bool IsDigit(char character) noexcept {
    return character >= '0' && character <= '9';
}

}  // namespace qmx::cam
