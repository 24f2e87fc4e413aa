/// What a camera offers by RTSP, and how it words its responses. The state of the session and the
/// rules of the protocol are those of the server (RtspServer.h), which are the same for every
/// camera.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "RtspRequest.h"

namespace korusim {

/// The content of a response.
struct SRtspReply {
    int status = 200;
    std::vector<std::pair<std::string_view, std::string>> headers;
    std::string body;
    bool resumes = false;  ///< PLAY after a PAUSE
};

/// A response in the two pieces that one quirk sends separately.
struct SRtspResponse {
    std::string head;
    std::string body;
};

/// Paths are those of RTSP URLs, with their query.
class CCameraResponses {
   public:
    virtual ~CCameraResponses() = default;

    [[nodiscard]] virtual SRtspReply Describe(const SRtspRequest& request,
                                              std::string_view path) const = 0;
    /// Returns the status of a request that sets up a path: 200 if there is a stream. `rate`
    /// becomes the frame rate that the path requests, if any.
    [[nodiscard]] virtual int CheckSetup(std::string_view path,
                                         std::optional<double>& rate) const = 0;
    /// Returns true if PLAY, PAUSE or TEARDOWN of a path means the stream that was set up by
    /// another one. Both are without a query.
    [[nodiscard]] virtual bool NamesStream(std::string_view path,
                                           std::string_view setupPath) const = 0;
    /// Returns the identifier of a new session; `random` is different for each.
    [[nodiscard]] virtual std::string SessionId(std::uint64_t random) const = 0;
    [[nodiscard]] virtual SRtspResponse Format(const SRtspReply& reply,
                                               const SRtspRequest& request) const = 0;
};

/// Returns the path of an RTSP URL with its query, or nothing if it is not such a URL. A URL that
/// ends with the port has the path "/".
[[nodiscard]] std::optional<std::string_view> PathOf(std::string_view url);
[[nodiscard]] std::string_view WithoutQuery(std::string_view path);
/// Returns true if a path is that of SETUP, or the path of its description: "/mjpg" for
/// "/mjpg/stream=0" and "/" for "/sid=96". Players name the latter by the base of the description,
/// with a slash at the end.
[[nodiscard]] bool IsSetupPathOrFolder(std::string_view path, std::string_view setupPath);
/// Returns the status line, such as "RTSP/1.0 200 OK" with its end.
[[nodiscard]] std::string StatusLine(int status);

}  // namespace korusim
