/// Asks a camera's RTSP server (RFC 2326) directly. The host interface reports only that an
/// operation failed; the status of the response is the reason.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Socket.h"

namespace hostkit {

struct SRtspResponse {
    int status = 0;      ///< 0 if the response is not RTSP
    std::string reason;  ///< the text after the status
    std::string head;    ///< status line and headers
    std::string body;

    [[nodiscard]] bool ok() const noexcept { return status == 200; }
};

/// Returns a response once `bytes` contain all of it, and nothing before.
[[nodiscard]] std::optional<SRtspResponse> ParseRtspResponse(std::string_view bytes);
/// Returns the value of a header, whose name may be in either case; empty if there is none.
[[nodiscard]] std::string RtspHeader(const SRtspResponse& response, std::string_view name);

/// A connection to a camera's RTSP server. Each request waits up to 5 s for its response, as the
/// plug-in does. The destructor closes the connection, which ends a session on it.
class CRtspProbe {
   public:
    /// Connects to a dotted address, for at most 2 s.
    explicit CRtspProbe(const std::string& address);

    [[nodiscard]] bool connected() const noexcept { return socket.valid(); }
    /// Sends a request for a path such as "/mjls", or for "*", with more header lines, each ended
    /// by CR LF. Returns nothing if no complete response arrives.
    [[nodiscard]] std::optional<SRtspResponse> Request(std::string_view method,
                                                       std::string_view path,
                                                       std::string_view headers = {});

   private:
    const std::string host;
    platform::CSocket socket;
    int sequence = 0;
};

/// The stream of a format, as the camera names it.
struct SStreamPaths {
    std::string setup;
    std::string control;
};
/// Returns the paths of the stream of a type ("raw", "jls" or "jpeg"). Those of a raw stream depend
/// on its size, which `description` (SDP, RFC 4566) lists.
[[nodiscard]] SStreamPaths StreamPaths(const std::string& type, std::uint16_t width,
                                       std::uint16_t height, std::string_view description);

/// Why a camera does not stream, and what to do.
struct SRefusal {
    std::string reason;  ///< such as "it refused SETUP with 453 Not Enough Bandwidth"
    std::string advice;
};
/// Sets up, plays and ends a session without receiving it. Returns nothing if the camera agreed to
/// everything.
[[nodiscard]] std::optional<SRefusal> StreamRefusal(const std::string& address,
                                                    const std::string& type, std::uint16_t width,
                                                    std::uint16_t height);

}  // namespace hostkit
