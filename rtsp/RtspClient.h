/// The control side of a camera stream: an RTSP 1.0 client (RFC 2326).
#pragma once

#include <cstdint>
#include <string>

#include "RtspResponse.h"
#include "RtspStream.h"
#include "Socket.h"

namespace qmx::cam {

/// Reads "Session" up to its first semicolon: what follows, a time-out as a rule, is not ours to
/// keep, since the client sends no keep-alive.
[[nodiscard]] std::string ReadSessionId(const std::string& session);

/// Reads the last "server_port=" of a "Transport" value into the two ports, by their low 16 bits. A
/// value without one leaves them as they are.
void ReadServerPorts(const std::string& transport, std::uint16_t& rtpPort, std::uint16_t& rtcpPort);

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
    /// Ends the session, as far as the camera answers, and the connection.
    ~CRtspClient();

    /// Connects to a dotted address or a name and probes with OPTIONS. False when connected already
    /// (nothing changes) and on every failure (not connected then).
    [[nodiscard]] bool Connect(const char* hostText, std::uint16_t tcpPort);
    /// Calls `Teardown`, ignores its result and closes the connection, also when there is no memory
    /// for the request. Changes no flag but by that `Teardown`.
    void Close();

    /// What the camera offers on a URL path, which begins with a slash.
    [[nodiscard]] SRtspStream Describe(const char* path);
    /// Makes the session. The setup path may carry a query; the control path is what the later
    /// requests name. The client's ports are in host order.
    [[nodiscard]] bool Setup(const char* setupUrlPath, const char* controlUrlPath,
                             std::uint16_t rtpPort, std::uint16_t rtcpPort);
    /// The same path for both.
    [[nodiscard]] bool Setup(const char* path, std::uint16_t rtpPort, std::uint16_t rtcpPort);
    bool Play();
    bool Pause();
    /// While playing it pauses first, and goes no further if that fails.
    bool Teardown();

    [[nodiscard]] bool IsPlaying() const noexcept { return playing; }
    [[nodiscard]] bool IsSetUp() const noexcept { return sessionOpen; }
    /// The "Server" of the OPTIONS answer.
    [[nodiscard]] std::string GetServerName() const { return serverName; }
    // Ports in host order: the camera's, and ours as announced by the last successful SETUP.
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

/// One send of the whole NUL-terminated text; false when it was not taken whole.
[[nodiscard]] bool SendRequest(platform::SocketHandle socket, const char* text);
/// `SendRequest`, then `ReadResponse`; `noResponse` when the send fell short.
[[nodiscard]] std::int32_t Transact(platform::SocketHandle socket, const char* text,
                                    CRtspHeaders& headers, std::string& body);
/// Limits each later receive.
void SetReceiveTimeout(platform::SocketHandle socket, std::uint32_t milliseconds);

}  // namespace qmx::cam
