/// Parses the words of a command line or a shell command. The parsers return
/// nothing for a text that does not match completely.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace hostkit {

struct SSize {
    std::uint16_t width = 0;
    std::uint16_t height = 0;
};

/// Parses a whole number up to `most`: decimal, or hexadecimal after "0x".
[[nodiscard]] std::optional<std::uint64_t> ParseWhole(std::string_view text, std::uint64_t most);
/// Parses a finite number.
[[nodiscard]] std::optional<double> ParseReal(std::string_view text);
[[nodiscard]] std::optional<bool> ParseBool(std::string_view text);
/// Parses a size such as "640x512".
[[nodiscard]] std::optional<SSize> ParseSize(std::string_view text);
/// Returns true for four dotted numbers. Anything else is the name of a camera, including short
/// forms such as "127.1" that some systems accept as an address.
[[nodiscard]] bool IsAddress(std::string_view text);

}  // namespace hostkit
