/// Conversions between UTF-8 and the UTF-16 of Windows. Included only by the Windows files.
#pragma once

#include <string>
#include <string_view>

namespace platform {

/// Converts a text. What is not valid becomes U+FFFD.
[[nodiscard]] std::wstring Widen(std::string_view utf8);
[[nodiscard]] std::string Narrow(std::wstring_view utf16);
/// Returns the system's text for an error of `GetLastError`, and its number.
[[nodiscard]] std::string SystemErrorText(unsigned long error);

}  // namespace platform
