#include "CameraResponses.h"

#include <algorithm>
#include <array>

namespace korusim {
namespace {

struct SReason {
    int status;
    std::string_view text;
};
constexpr std::array<SReason, 11> reasons{{{200, "OK"},
                                           {400, "Bad Request"},
                                           {404, "Not Found"},
                                           {406, "Not Acceptable"},
                                           {453, "Not Enough Bandwidth"},
                                           {454, "Session Not Found"},
                                           {455, "Method Not Valid in This State"},
                                           {461, "Unsupported Transport"},
                                           {500, "Internal Server Error"},
                                           {501, "Not Implemented"},
                                           {505, "RTSP Version Not Supported"}}};

}  // namespace

std::optional<std::string_view> PathOf(std::string_view url) {
    constexpr std::string_view scheme = "rtsp://";
    if (!SameWord(url.substr(0, scheme.size()), scheme)) return std::nullopt;
    url.remove_prefix(scheme.size());
    const std::size_t slash = url.find('/');
    if (slash == 0) return std::nullopt;
    if (slash == std::string_view::npos) return std::string_view("/");
    return url.substr(slash);
}

std::string_view WithoutQuery(std::string_view path) { return path.substr(0, path.find('?')); }

bool IsSetupPathOrFolder(std::string_view path, std::string_view setupPath) {
    if (path == setupPath) return true;
    if (path.ends_with('/')) path.remove_suffix(1);
    return path == setupPath.substr(0, setupPath.rfind('/'));
}

std::string StatusLine(int status) {
    const auto found = std::ranges::find(reasons, status, &SReason::status);
    return "RTSP/1.0 " + std::to_string(status) + " " +
           std::string(found != reasons.end() ? found->text : "Unknown") + "\r\n";
}

}  // namespace korusim
