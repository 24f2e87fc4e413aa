/// The text of the node tree protocol: request lines out, reply lines in. The connection adds and
/// removes the line ends.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace arbor {

/// Longest reply line in bytes. The longest true one is a version text of some ten words.
inline constexpr std::size_t maxReplyBytes = 4096;
/// Longest path in bytes, so that a request always fits the system's send buffer.
inline constexpr std::size_t maxPathBytes = 1024;

/// False for a path that would break the request into several lines or words.
[[nodiscard]] bool IsSendable(std::string_view path);

[[nodiscard]] std::string VerifyRequest(std::string_view path);
[[nodiscard]] std::string GetRequest(std::string_view path);
/// None for a number that isn't finite.
[[nodiscard]] std::optional<std::string> SetRequest(std::string_view path, double value);

/// What a reply line says, without its line end; none when it says anything else, be it an error,
/// a value of another type or nonsense.
[[nodiscard]] bool IsDone(std::string_view line);
[[nodiscard]] std::optional<std::string_view> ReadString(std::string_view line);
[[nodiscard]] std::optional<bool> ReadBool(std::string_view line);
[[nodiscard]] std::optional<double> ReadDouble(std::string_view line);

}  // namespace arbor
