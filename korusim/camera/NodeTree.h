/// The camera's node tree. Each request is one line, and so is each reply; LF ends a line.
///
///     VERIFY <path>                  OK
///     GET <path>                     OK string <text> | OK bool true|false | OK double <number>
///     SET <path> double <number>     OK
///
/// The reply to anything else is "ERROR <text>".
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <variant>

#include "CameraSettings.h"

namespace korusim {

class CNodeTree {
   public:
    explicit CNodeTree(const SCameraSettings& settings);

    /// Returns the reply to a request, both without line ends.
    [[nodiscard]] std::string Reply(std::string_view request);
    /// Returns the frame rate that clients have set, in frames per second.
    [[nodiscard]] double frequency() const noexcept { return rate; }

   private:
    using Node = std::variant<std::string, bool, double>;

    [[nodiscard]] std::string Verify(std::string_view path) const;
    [[nodiscard]] std::string Get(std::string_view path) const;
    [[nodiscard]] std::string Set(std::string_view path, std::string_view typeAndValue);

    std::map<std::string, Node, std::less<>> nodes;  // leaves only, by full path
    double rate;
};

/// Splits the bytes of one connection into request lines and replies to them.
class CNodeTreeReader {
   public:
    /// Returns the replies, with line ends, to the requests that these bytes complete.
    [[nodiscard]] std::string Feed(std::string_view bytes, CNodeTree& tree);
    /// Returns true if a line is longer than any request; the caller must then close the
    /// connection.
    [[nodiscard]] bool broken() const noexcept;

   private:
    std::string pending;
};

}  // namespace korusim
