/// Reads the small words of a command line or a shell command. All of a text must fit, or the
/// answer is none.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace qmxhost {

struct SSize {
    std::uint16_t width = 0;
    std::uint16_t height = 0;
};

/// A whole number up to `most`, decimal or with "0x" in hexadecimal.
[[nodiscard]] std::optional<std::uint64_t> ParseWhole(std::string_view text, std::uint64_t most);
/// A finite number.
[[nodiscard]] std::optional<double> ParseReal(std::string_view text);
[[nodiscard]] std::optional<bool> ParseBool(std::string_view text);
/// "640x512".
[[nodiscard]] std::optional<SSize> ParseSize(std::string_view text);
/// True for four dotted numbers. Anything else is taken for a camera's name, also the short forms
/// such as "127.1" that some systems read as an address.
[[nodiscard]] bool IsAddress(std::string_view text);

}  // namespace qmxhost
