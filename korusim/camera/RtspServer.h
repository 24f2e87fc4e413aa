/// The RTSP server of one camera (RFC 2326), without its connections: requests in, responses out.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CameraSettings.h"
#include "Description.h"
#include "RtspRequest.h"
#include "TransportHeader.h"

namespace korusim {

/// Identifies a connection of the camera. Identifiers are not reused.
using ConnectionId = std::uint64_t;

/// The session; a camera has at most one.
struct SRtspSession {
    std::uint64_t serial = 0;  ///< distinguishes this session from earlier ones
    std::string id;
    ConnectionId connection = 0;
    SVideoFormat format;
    std::string setupPath;
    std::optional<double> rate;  ///< that SETUP requested, in frames per second
    std::uint16_t clientRtpPort = 0;
    std::uint16_t clientRtcpPort = 0;
    bool playing = false;
};

/// A response in the two pieces that one quirk sends separately.
struct SRtspResponse {
    std::string head;
    std::string body;
};

/// Session states, of which a camera has one at a time:
///
///     | state   | DESCRIBE, OPTIONS | SETUP   | PLAY    | PAUSE | TEARDOWN |
///     |---------|-------------------|---------|---------|-------|----------|
///     | none    | 200               | ready   | 454     | 454   | 454      |
///     | ready   | 200               | 455/453 | playing | 455   | none     |
///     | playing | 200               | 455/453 | 455     | ready | none     |
///
/// GET_PARAMETER gets 200 in the states that have a session, else 454, and changes nothing. 453 is
/// the response on another connection than the session's; there, all other requests behave as
/// without a session. A session also ends with its connection, and when the camera gives it up.
class CRtspServer {
   public:
    CRtspServer(const SCameraSettings& cameraSettings, SPortPair ports);

    /// Returns the response to a request. `session` shows what the request changed.
    [[nodiscard]] SRtspResponse Respond(ConnectionId connection, const SRtspRequest& request);
    /// Returns the response to bytes that are not a request.
    [[nodiscard]] SRtspResponse Refuse(const SRtspRequest& request) const;
    void ConnectionClosed(ConnectionId connection);
    /// Ends the session, if there is one, without notifying its client.
    void GiveUpSession() { current.reset(); }

    [[nodiscard]] const std::optional<SRtspSession>& session() const noexcept { return current; }

   private:
    struct SReply {
        int status = 200;
        std::vector<std::pair<std::string_view, std::string>> headers;
        std::string body;
    };

    [[nodiscard]] SReply Dispatch(ConnectionId connection, const SRtspRequest& request);
    [[nodiscard]] SReply Describe(const SRtspRequest& request, std::string_view path) const;
    [[nodiscard]] SReply Setup(ConnectionId connection, const SRtspRequest& request,
                               std::string_view path);
    [[nodiscard]] SReply Play();
    [[nodiscard]] SReply Pause();
    [[nodiscard]] SReply Teardown();
    /// GET_PARAMETER, which players send without a body only to keep the session alive.
    [[nodiscard]] SReply KeepAlive();
    [[nodiscard]] int CheckSession(ConnectionId connection, const SRtspRequest& request,
                                   std::string_view path) const;
    [[nodiscard]] SReply WrongState() const;
    [[nodiscard]] std::string TimeoutParameter() const;
    [[nodiscard]] std::string NewSessionId();
    [[nodiscard]] std::string HeaderLine(std::string_view name, std::string_view value) const;
    [[nodiscard]] SRtspResponse Format(const SReply& reply, const SRtspRequest& request) const;

    SCameraSettings settings;
    SPortPair serverPorts;
    std::mt19937_64 random;
    std::uint64_t sessionsMade = 0;
    std::optional<SRtspSession> current;
};

}  // namespace korusim
