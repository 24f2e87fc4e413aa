#include "RtspClient.h"

#include <cstring>
#include <new>

#include "RtspText.h"
#include "qmx.h"

namespace qmx::cam {
namespace {

/// The only status that counts as success. No other status is handled in a special way.
constexpr std::int32_t statusOk = 200;
/// Time-out of one receive, in milliseconds.
constexpr std::uint32_t receiveTimeout = 5000;
/// OPTIONS always has this number and does not change the counter.
constexpr std::uint32_t optionsCSeq = 0;

/// Returns the value of a header; empty when there is none.
std::string ValueOf(const CRtspHeaders& headers, const char* name) {
    const auto entry = headers.find(name);
    return entry != headers.end() ? entry->second : std::string();
}

/// Runs a transaction and checks what every response must fulfil.
bool RunTransaction(platform::SocketHandle socket, const CString& request, std::uint32_t sequence,
                    CRtspHeaders& headers, std::string& body) {
    return Transact(socket, request.c_str(), headers, body) == statusOk &&
           CheckCSeq(headers, sequence);
}

}  // namespace

std::string ParseSessionId(const std::string& session) {
    return session.substr(0, session.find(';'));
}

void ParseServerPorts(const std::string& transport, std::uint16_t& rtpPort,
                      std::uint16_t& rtcpPort) {
    constexpr std::string_view name = "server_port=";
    for (const std::string& piece : Split(transport, ";")) {
        if (!piece.starts_with(name)) continue;
        const std::string_view ports = std::string_view(piece).substr(name.size());
        const std::size_t hyphen = ports.find('-');
        rtpPort = static_cast<std::uint16_t>(ParseUnsigned(ports));
        rtcpPort = static_cast<std::uint16_t>(hyphen == std::string_view::npos
                                                  ? rtpPort + 1u
                                                  : ParseUnsigned(ports.substr(hyphen + 1)));
    }
}

CRtspClient::~CRtspClient() { Close(); }

bool CRtspClient::Connect(const char* hostText, std::uint16_t tcpPort) {
    if (socket.valid()) return false;
    const auto address = platform::ResolveIpv4(hostText);
    if (!address) return false;
    socket.Reset(platform::OpenTcpSocket());
    if (!socket.valid()) return false;
    // Where an earlier connection has left a session open, `Close` also tries to end that session.
    // Here the socket is not connected, so that its request fails at once; after a failed OPTIONS
    // the request goes out, and may wait for a response once more.
    if (!platform::ConnectSocket(socket.handle(), platform::MakeSocketAddress(*address, tcpPort))) {
        Close();
        return false;
    }
    SetReceiveTimeout(socket.handle(), receiveTimeout);
    cseq = 1;
    if (!ProbeOptions()) {
        Close();
        return false;
    }
    host = hostText;
    port = tcpPort;
    return true;
}

bool CRtspClient::ProbeOptions() {
    CRtspHeaders headers;
    std::string body;
    const CString request = strprintf("OPTIONS * RTSP/1.0\r\nCSeq: %u\r\n\r\n", optionsCSeq);
    if (!RunTransaction(socket.handle(), request, optionsCSeq, headers, body)) return false;
    serverName = ValueOf(headers, "Server");
    return true;
}

void CRtspClient::Close() {
    try {
        Teardown();
    } catch (const std::bad_alloc&) {
        // No memory for the request counts as a failed TEARDOWN. The connection ends all the same.
    }
    socket.Reset();
}

SRtspStream CRtspClient::Describe(const char* path) {
    if (!socket.valid()) return {};
    const std::uint32_t sequence = cseq++;
    CRtspHeaders headers;
    std::string body;
    const CString request =
        strprintf("DESCRIBE rtsp://%s:%u%s RTSP/1.0\r\nAccept: application/sdp\r\nCSeq: %u\r\n\r\n",
                  host.c_str(), port, path, sequence);
    if (!RunTransaction(socket.handle(), request, sequence, headers, body)) return {};
    if (ValueOf(headers, "Content-Type") != "application/sdp") return {};
    return ParseDescription(body);
}

bool CRtspClient::Setup(const char* setupUrlPath, const char* controlUrlPath, std::uint16_t rtpPort,
                        std::uint16_t rtcpPort) {
    if (!socket.valid() || sessionOpen) return false;
    const std::uint32_t sequence = cseq++;
    CRtspHeaders headers;
    std::string body;
    const CString request = strprintf(
        "SETUP rtsp://%s:%u%s RTSP/1.0\r\nCSeq: %u\r\n"
        "Transport: RTP/AVP;unicast;client_port=%u-%u\r\n\r\n",
        host.c_str(), port, setupUrlPath, sequence, rtpPort, rtcpPort);
    if (!RunTransaction(socket.handle(), request, sequence, headers, body)) return false;
    const auto session = headers.find("Session");
    const auto transport = headers.find("Transport");
    if (session == headers.end() || transport == headers.end()) return false;
    sessionId = ParseSessionId(session->second);
    ParseServerPorts(transport->second, serverRtpPort, serverRtcpPort);
    // The test is on the fields: a response without server ports succeeds with the ports that an
    // earlier response to SETUP has left there, whether that SETUP succeeded or not.
    if (serverRtpPort == 0 || serverRtcpPort == 0) return false;
    setupPath = setupUrlPath;
    controlPath = controlUrlPath;
    clientRtpPort = rtpPort;
    clientRtcpPort = rtcpPort;
    sessionOpen = true;
    return true;
}

bool CRtspClient::Setup(const char* path, std::uint16_t rtpPort, std::uint16_t rtcpPort) {
    return Setup(path, path, rtpPort, rtcpPort);
}

/// PLAY, PAUSE and TEARDOWN differ only in their first word.
bool CRtspClient::SendSessionRequest(const char* method, CRtspHeaders& headers) {
    const std::uint32_t sequence = cseq++;
    std::string body;
    const CString request =
        strprintf("%s rtsp://%s:%u%s RTSP/1.0\r\nCSeq: %u\r\nSession: %s\r\n\r\n", method,
                  host.c_str(), port, controlPath.c_str(), sequence, sessionId.c_str());
    return RunTransaction(socket.handle(), request, sequence, headers, body);
}

bool CRtspClient::Play() {
    if (!sessionOpen || playing) return false;
    CRtspHeaders headers;
    if (!SendSessionRequest("PLAY", headers) || !CheckSession(headers, sessionId)) return false;
    playing = true;
    return true;
}

bool CRtspClient::Pause() {
    if (!playing) return false;
    CRtspHeaders headers;
    if (!SendSessionRequest("PAUSE", headers)) return false;
    playing = false;
    return true;
}

bool CRtspClient::Teardown() {
    if (playing && !Pause()) return false;
    if (!sessionOpen) return false;
    CRtspHeaders headers;
    if (!SendSessionRequest("TEARDOWN", headers)) return false;
    sessionOpen = false;
    return true;
}

bool SendRequest(platform::SocketHandle socket, const char* text) {
    const std::size_t length = std::strlen(text);
    return platform::Send(socket, text, length) == static_cast<std::ptrdiff_t>(length);
}

std::int32_t Transact(platform::SocketHandle socket, const char* text, CRtspHeaders& headers,
                      std::string& body) {
    return SendRequest(socket, text) ? ReadResponse(socket, headers, body) : noResponse;
}

void SetReceiveTimeout(platform::SocketHandle socket, std::uint32_t milliseconds) {
    // Without the limit a camera that responds still works.
    (void)platform::SetReceiveTimeout(socket, milliseconds);
}

}  // namespace qmx::cam
