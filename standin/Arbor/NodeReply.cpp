#include "NodeReply.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

namespace arbor {
namespace {

/// Returns the rest of a line after a prefix, or nothing if the line does not begin with it.
std::optional<std::string_view> RestAfter(std::string_view line, std::string_view prefix) {
    if (!line.starts_with(prefix)) return std::nullopt;
    return line.substr(prefix.size());
}

std::string Request(std::string_view verb, std::string_view path) {
    std::string line(verb);
    line += ' ';
    line += path;
    return line;
}

}  // namespace

bool IsSendable(std::string_view path) {
    const auto breaksLine = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte <= 0x20 || byte == 0x7F;
    };
    return !path.empty() && path.size() <= maxPathBytes && std::ranges::none_of(path, breaksLine);
}

std::string VerifyRequest(std::string_view path) { return Request("VERIFY", path); }
std::string GetRequest(std::string_view path) { return Request("GET", path); }

std::optional<std::string> SetRequest(std::string_view path, double value) {
    if (!std::isfinite(value)) return std::nullopt;
    char digits[32];  // the shortest exact form of a double has at most 24 characters
    const auto [end, error] = std::to_chars(digits, digits + sizeof(digits), value);
    if (error != std::errc()) return std::nullopt;
    return Request("SET", path) + " double " + std::string(digits, end);
}

bool IsDone(std::string_view line) { return line == "OK"; }

std::optional<std::string_view> ReadString(std::string_view line) {
    const auto text = RestAfter(line, "OK string ");
    // The caller gets NUL-terminated text, which a NUL inside would truncate.
    if (!text || text->find('\0') != std::string_view::npos) return std::nullopt;
    return text;
}

std::optional<bool> ReadBool(std::string_view line) {
    if (line == "OK bool true") return true;
    if (line == "OK bool false") return false;
    return std::nullopt;
}

std::optional<double> ReadDouble(std::string_view line) {
    const auto text = RestAfter(line, "OK double ");
    if (!text) return std::nullopt;
    double value = 0;
    const char* const last = text->data() + text->size();
    const auto [end, error] = std::from_chars(text->data(), last, value);
    if (error != std::errc() || end != last || !std::isfinite(value)) return std::nullopt;
    return value;
}

}  // namespace arbor
