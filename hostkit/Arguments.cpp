#include "Arguments.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace hostkit {

std::optional<std::uint64_t> ParseWhole(std::string_view text, std::uint64_t most) {
    int base = 10;
    if (text.starts_with("0x")) {
        base = 16;
        text.remove_prefix(2);
    }
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop != end || value > most) return std::nullopt;
    return value;
}

std::optional<double> ParseReal(std::string_view text) {
    double value = 0;
    const char* const end = text.data() + text.size();
    // Unlike strtod this accepts neither the decimal comma of the user's locale nor leading blanks.
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::optional<bool> ParseBool(std::string_view text) {
    if (text == "true" || text == "1") return true;
    if (text == "false" || text == "0") return false;
    return std::nullopt;
}

std::optional<SSize> ParseSize(std::string_view text) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint16_t>::max();
    const std::size_t cross = text.find('x');
    if (cross == std::string_view::npos) return std::nullopt;
    const auto width = ParseWhole(text.substr(0, cross), most);
    const auto height = ParseWhole(text.substr(cross + 1), most);
    if (!width || !height) return std::nullopt;
    return SSize{static_cast<std::uint16_t>(*width), static_cast<std::uint16_t>(*height)};
}

bool IsAddress(std::string_view text) {
    for (int i = 0; i < 4; ++i) {
        const std::size_t end = i < 3 ? text.find('.') : text.size();
        if (end == std::string_view::npos || end == 0 || end > 3) return false;
        if (text.find_first_not_of("0123456789") < end) return false;
        if (!ParseWhole(text.substr(0, end), 255)) return false;
        text.remove_prefix(i < 3 ? end + 1 : end);
    }
    return true;
}

}  // namespace hostkit
