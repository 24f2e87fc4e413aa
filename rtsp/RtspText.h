/// The few text rules that all of RTSP and SDP share here. Pure; no locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qmx::cam {

/// The pieces between delimiters, in order; each character of `delimiters` is one. Empty pieces are
/// dropped, so that neighbouring delimiters count as one.
[[nodiscard]] std::vector<std::string> Split(std::string_view text, std::string_view delimiters);

/// `strtoul` in base 10 with the host's 32-bit unsigned long: leading white space and a sign are
/// taken, it stops at the first other character, gives 0 where there is no digit, 4294967295 for
/// what is too large, and the negated number, wrapped, behind a minus sign.
[[nodiscard]] std::uint32_t ParseUnsigned(std::string_view text) noexcept;

/// ASCII only, whatever the locale says.
[[nodiscard]] constexpr bool IsDigit(char character) noexcept {
    return character >= '0' && character <= '9';
}

}  // namespace qmx::cam
