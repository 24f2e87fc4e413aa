#include "PixelTypeNames.h"

#include <array>
#include <charconv>
#include <cstdio>

namespace frames {
namespace {

struct SNamedType {
    std::string_view name;
    qmx::SGuid type;
};
constexpr SNamedType namedTypes[] = {{"raw", rawType}, {"jls", jlsType}, {"jpeg", jpegType}};

constexpr std::size_t guidLength = 36;  // without the braces
constexpr std::size_t guidBytes = 16;

/// Parses the two hexadecimal digits at the start of a text.
std::optional<std::uint8_t> ParseByte(std::string_view text) {
    std::uint8_t value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + 2, value, 16);
    if (error != std::errc() || stop != text.data() + 2) return std::nullopt;
    return value;
}

}  // namespace

std::string GuidText(const qmx::SGuid& guid) {
    char text[guidLength + 3];
    const std::uint8_t* const tail = guid.data4;
    std::snprintf(text, sizeof(text), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  static_cast<unsigned>(guid.data1), static_cast<unsigned>(guid.data2),
                  static_cast<unsigned>(guid.data3), tail[0], tail[1], tail[2], tail[3], tail[4],
                  tail[5], tail[6], tail[7]);
    return text;
}

std::optional<qmx::SGuid> ParseGuid(std::string_view text) {
    if (text.size() == guidLength + 2 && text.front() == '{' && text.back() == '}') {
        text = text.substr(1, guidLength);
    }
    if (text.size() != guidLength) return std::nullopt;
    std::array<std::uint8_t, guidBytes> bytes{};
    std::size_t at = 0;
    for (std::size_t i = 0; i < guidBytes; ++i, at += 2) {
        const bool afterGroup = i == 4 || i == 6 || i == 8 || i == 10;
        if (afterGroup && text[at++] != '-') return std::nullopt;
        const auto byte = ParseByte(text.substr(at, 2));
        if (!byte) return std::nullopt;
        bytes[i] = *byte;
    }
    // The text shows the first three fields with the most significant digit first.
    qmx::SGuid guid{};
    for (std::size_t i = 0; i < 4; ++i) guid.data1 = guid.data1 << 8 | bytes[i];
    guid.data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
    guid.data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
    for (std::size_t i = 0; i < 8; ++i) guid.data4[i] = bytes[8 + i];
    return guid;
}

std::string TypeName(const qmx::SGuid& type) {
    for (const SNamedType& named : namedTypes) {
        if (named.type == type) return std::string(named.name);
    }
    return GuidText(type);
}

std::optional<qmx::SGuid> ParseType(std::string_view text) {
    for (const SNamedType& named : namedTypes) {
        if (named.name == text) return named.type;
    }
    return ParseGuid(text);
}

}  // namespace frames
