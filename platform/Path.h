/// File names in any language. Everywhere but in calls of the system, texts are UTF-8 and file
/// names are `std::filesystem::path`. The conversions that the standard library offers for plain
/// texts fail on Windows for all but ASCII, so use these. The plug-in does not use them.
#pragma once

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

namespace platform {

/// Returns the path that a text in UTF-8 names. On POSIX any bytes are a path; on Windows it throws
/// a `std::filesystem::filesystem_error` for a text that is not UTF-8.
[[nodiscard]] inline std::filesystem::path PathFromUtf8(std::string_view text) {
    return std::u8string_view(reinterpret_cast<const char8_t*>(text.data()), text.size());
}
/// Returns a path as text in UTF-8, for messages.
[[nodiscard]] inline std::string Utf8Text(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {reinterpret_cast<const char*>(text.data()), text.size()};
}
/// Opens a file as `std::fopen` does, with the same modes and errors.
[[nodiscard]] std::FILE* OpenFile(const std::filesystem::path& file, const char* mode) noexcept;

}  // namespace platform
