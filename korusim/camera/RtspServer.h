/// The RTSP server of one camera (RFC 2326), without its connections: requests in, responses out.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "CameraResponses.h"
#include "CameraSettings.h"
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
    std::string setupPath;
    std::optional<double> rate;  ///< that SETUP requested, in frames per second
    std::uint16_t clientRtpPort = 0;
    std::uint16_t clientRtcpPort = 0;
    bool playing = false;
    bool played = false;  ///< there has been a PLAY
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
    CRtspServer(const SCameraSettings& cameraSettings, SPortPair ports,
                std::unique_ptr<const CCameraResponses> cameraResponses);

    /// Returns the response to a request. `session` shows what the request changed.
    [[nodiscard]] SRtspResponse Respond(ConnectionId connection, const SRtspRequest& request);
    /// Returns the response to bytes that are not a request.
    [[nodiscard]] SRtspResponse Refuse(const SRtspRequest& request) const;
    void ConnectionClosed(ConnectionId connection);
    /// Ends the session, if there is one, without notifying its client.
    void GiveUpSession() { current.reset(); }

    [[nodiscard]] const std::optional<SRtspSession>& session() const noexcept { return current; }

   private:
    [[nodiscard]] SRtspReply Dispatch(ConnectionId connection, const SRtspRequest& request);
    [[nodiscard]] SRtspReply Setup(ConnectionId connection, const SRtspRequest& request,
                                   std::string_view path);
    [[nodiscard]] SRtspReply Play();
    [[nodiscard]] SRtspReply Pause();
    [[nodiscard]] SRtspReply Teardown();
    /// GET_PARAMETER, which players send without a body only to keep the session alive.
    [[nodiscard]] SRtspReply KeepAlive();
    [[nodiscard]] int CheckSession(ConnectionId connection, const SRtspRequest& request,
                                   std::string_view path) const;
    [[nodiscard]] SRtspReply WrongState() const;
    [[nodiscard]] std::string TimeoutParameter() const;

    SCameraSettings settings;
    SPortPair serverPorts;
    std::unique_ptr<const CCameraResponses> responses;
    std::mt19937_64 random;
    std::uint64_t sessionsMade = 0;
    std::optional<SRtspSession> current;
};

}  // namespace korusim
