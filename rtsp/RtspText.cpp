#include "RtspText.h"

#include <limits>

namespace qmx::cam {

std::vector<std::string> Split(std::string_view text, std::string_view delimiters) {
    std::vector<std::string> pieces;
    std::size_t begin = text.find_first_not_of(delimiters);
    while (begin != std::string_view::npos) {
        const std::size_t end = text.find_first_of(delimiters, begin);
        pieces.emplace_back(text.substr(begin, end - begin));
        begin = text.find_first_not_of(delimiters, end);
    }
    return pieces;
}

std::uint32_t ParseUnsigned(std::string_view text) noexcept {
    constexpr std::uint64_t largest = std::numeric_limits<std::uint32_t>::max();
    std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
    if (at == std::string_view::npos) return 0;
    const bool negative = text[at] == '-';
    if (negative || text[at] == '+') ++at;
    std::uint64_t value = 0;
    for (; at < text.size() && IsDigit(text[at]); ++at) {
        value = value * 10 + static_cast<std::uint64_t>(text[at] - '0');
        if (value > largest) return static_cast<std::uint32_t>(largest);
    }
    const auto number = static_cast<std::uint32_t>(value);
    return negative ? 0 - number : number;
}

}  // namespace qmx::cam
