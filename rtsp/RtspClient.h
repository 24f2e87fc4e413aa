/// The control connection of a camera stream: an RTSP 1.0 client (RFC 2326).
#pragma once

#include <cstdint>
#include <string>

#include "RtspResponse.h"
#include "RtspStream.h"
#include "Socket.h"

namespace qmx::cam {

/// Returns the session id of a "Session" value: the text before the first semicolon. What follows,
/// usually a time-out, is ignored, because the client sends no keep-alive.
[[nodiscard]] std::string ParseSessionId(const std::string& session);

/// Parses the last "server_port=" of a "Transport" value (RFC 2326 section 12.39) and stores the
/// low 16 bits of its numbers. A single port is RTP's, and RTCP's is the next one. Without a
/// "server_port=" the ports stay unchanged.
void ParseServerPorts(const std::string& transport, std::uint16_t& rtpPort,
                      std::uint16_t& rtcpPort);

/// One blocking TCP connection to a camera, one request at a time. Owned and called by the device
/// alone, on the host's thread; starts no thread, takes no lock, writes no log. A request that
/// fails returns false (or an invalid description) and leaves the connection open. Each receive
/// from a silent camera blocks for 5000 ms; a request makes one such receive, `Teardown` too, since
/// it stops at a PAUSE that fails, and `Connect` makes two when a session is left over from before.
///
/// | State        | socket  | sessionOpen | playing |  left by
/// | Disconnected | none    | false       | false   |  Connect
/// | Connected    | valid   | false       | false   |  Setup, Close
/// | Ready        | valid   | true        | false   |  Play, Teardown, Close
/// | Playing      | valid   | true        | true    |  Pause, Teardown, Close
///
/// A flag changes only when its own request has succeeded. A camera that refuses TEARDOWN therefore
/// leaves `sessionOpen` set after `Close`, and one that refuses PAUSE leaves `playing` set as well;
/// `Setup` then refuses until a `Teardown` succeeds.
class CRtspClient {
   public:
    CRtspClient() = default;
    CRtspClient(const CRtspClient&) = delete;
    CRtspClient& operator=(const CRtspClient&) = delete;
    /// The same as `Close`.
    ~CRtspClient();

    /// Connects to a dotted address or a name and sends OPTIONS. Returns false when connected
    /// already, without any change, and on failure, after which the client is not connected.
    [[nodiscard]] bool Connect(const char* hostText, std::uint16_t tcpPort);
    /// Calls `Teardown`, ignores its result and closes the connection, also when there is no memory
    /// for the request. Changes no flag but by that `Teardown`.
    void Close();

    /// Returns what the camera offers on a URL path, which begins with a slash; an invalid
    /// description when the request fails.
    [[nodiscard]] SRtspStream Describe(const char* path);
    /// Creates the session. The setup path may contain a query; the later requests name the control
    /// path. The client's ports are in host order.
    [[nodiscard]] bool Setup(const char* setupUrlPath, const char* controlUrlPath,
                             std::uint16_t rtpPort, std::uint16_t rtcpPort);
    /// The same path for both.
    [[nodiscard]] bool Setup(const char* path, std::uint16_t rtpPort, std::uint16_t rtcpPort);
    bool Play();
    bool Pause();
    /// Ends the session. Sends PAUSE first while playing, and nothing more when that fails.
    bool Teardown();

    [[nodiscard]] bool IsPlaying() const noexcept { return playing; }
    [[nodiscard]] bool IsSetUp() const noexcept { return sessionOpen; }
    /// The "Server" header of the response to OPTIONS.
    [[nodiscard]] std::string GetServerName() const { return serverName; }
    // Ports in host order: the camera's, and the client's as sent in the last successful SETUP.
    [[nodiscard]] std::uint16_t GetServerRtpPort() const noexcept { return serverRtpPort; }
    [[nodiscard]] std::uint16_t GetServerRtcpPort() const noexcept { return serverRtcpPort; }
    [[nodiscard]] std::uint16_t GetClientRtpPort() const noexcept { return clientRtpPort; }
    [[nodiscard]] std::uint16_t GetClientRtcpPort() const noexcept { return clientRtcpPort; }

   private:
    bool ProbeOptions();
    bool SendSessionRequest(const char* method, CRtspHeaders& headers);

    std::string host;
    std::string setupPath;
    std::string controlPath;
    std::string sessionId;
    std::uint32_t cseq = 1;
    std::uint16_t port = 554;
    std::uint16_t clientRtpPort = 0;
    std::uint16_t clientRtcpPort = 0;
    std::uint16_t serverRtpPort = 0;
    std::uint16_t serverRtcpPort = 0;
    std::string serverName;
    platform::CSocket socket;
    bool playing = false;
    bool sessionOpen = false;
};

/// Sends a NUL-terminated text by one send. Returns false unless the whole text was sent.
[[nodiscard]] bool SendRequest(platform::SocketHandle socket, const char* text);
/// Calls `SendRequest`, then `ReadResponse`. Returns `noResponse` when the request was not sent.
[[nodiscard]] std::int32_t Transact(platform::SocketHandle socket, const char* text,
                                    CRtspHeaders& headers, std::string& body);
/// Limits the time of each later receive.
void SetReceiveTimeout(platform::SocketHandle socket, std::uint32_t milliseconds);

}  // namespace qmx::cam
