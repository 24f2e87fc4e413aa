/// The text of the node tree protocol: request lines out, reply lines in. The connection adds and
/// removes the line ends.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace arbor {

/// Longest reply line in bytes. The longest real one is a version text of about ten words.
inline constexpr std::size_t maxReplyBytes = 4096;
/// Longest path in bytes. A request then always fits into the send buffer.
inline constexpr std::size_t maxPathBytes = 1024;

/// Returns false for a path that would split the request into several lines or words.
[[nodiscard]] bool IsSendable(std::string_view path);

[[nodiscard]] std::string VerifyRequest(std::string_view path);
[[nodiscard]] std::string GetRequest(std::string_view path);
/// Returns nothing for a number that is not finite.
[[nodiscard]] std::optional<std::string> SetRequest(std::string_view path, double value);

/// Parse a reply line without its line end. They return nothing for any other reply: an error, a
/// value of another type, or an invalid line.
[[nodiscard]] bool IsDone(std::string_view line);
[[nodiscard]] std::optional<std::string_view> ReadString(std::string_view line);
[[nodiscard]] std::optional<bool> ReadBool(std::string_view line);
[[nodiscard]] std::optional<double> ReadDouble(std::string_view line);

}  // namespace arbor
