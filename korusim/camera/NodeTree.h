/// The camera's node tree: request lines in, reply lines out, one at a time, ended by LF.
///
///     VERIFY <path>                  OK
///     GET <path>                     OK string <text> | OK bool true|false | OK double <number>
///     SET <path> double <number>     OK
///
/// Anything else is answered by "ERROR <text>".
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

    /// The reply to a request, both without line ends.
    [[nodiscard]] std::string Answer(std::string_view request);
    /// The frame rate that clients have set, in frames per second.
    [[nodiscard]] double frequency() const noexcept { return rate; }

   private:
    using Node = std::variant<std::string, bool, double>;

    [[nodiscard]] std::string Verify(std::string_view path) const;
    [[nodiscard]] std::string Get(std::string_view path) const;
    [[nodiscard]] std::string Set(std::string_view path, std::string_view typeAndValue);

    std::map<std::string, Node, std::less<>> nodes;  // leaves only, by full path
    double rate;
};

/// Cuts the bytes of one connection into request lines and answers them.
class CNodeTreeReader {
   public:
    /// The replies, with their line ends, to the requests that these bytes complete.
    [[nodiscard]] std::string Feed(std::string_view bytes, CNodeTree& tree);
    /// True when a line has grown beyond any request: the connection is to be closed.
    [[nodiscard]] bool broken() const noexcept;

   private:
    std::string pending;
};

}  // namespace korusim
