#include "RtspServer.h"

#include <utility>

namespace korusim {
namespace {

constexpr std::string_view publicMethods =
    "OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, GET_PARAMETER, TEARDOWN";

}  // namespace

CRtspServer::CRtspServer(const SCameraSettings& cameraSettings, SPortPair ports,
                         std::unique_ptr<const CCameraResponses> cameraResponses)
    : settings(cameraSettings),
      serverPorts(ports),
      responses(std::move(cameraResponses)),
      random(settings.seed) {}

SRtspResponse CRtspServer::Respond(ConnectionId connection, const SRtspRequest& request) {
    return responses->Format(Dispatch(connection, request), request);
}

SRtspResponse CRtspServer::Refuse(const SRtspRequest& request) const {
    return responses->Format(SRtspReply{400, {}, {}}, request);
}

void CRtspServer::ConnectionClosed(ConnectionId connection) {
    if (current && current->connection == connection) current.reset();
}

SRtspReply CRtspServer::Dispatch(ConnectionId connection, const SRtspRequest& request) {
    if (request.version != "RTSP/1.0") return {505, {}, {}};
    if (request.Find("CSeq") == nullptr) return {400, {}, {}};
    if (request.method == "OPTIONS") return {200, {{"Public", std::string(publicMethods)}}, {}};
    const auto path = PathOf(request.url);
    if (!path) return {400, {}, {}};
    if (request.method == "DESCRIBE") return responses->Describe(request, *path);
    if (request.method == "SETUP") return Setup(connection, request, *path);

    using Operation = SRtspReply (CRtspServer::*)();
    Operation operation = nullptr;
    if (request.method == "PLAY") operation = &CRtspServer::Play;
    if (request.method == "PAUSE") operation = &CRtspServer::Pause;
    if (request.method == "TEARDOWN") operation = &CRtspServer::Teardown;
    if (request.method == "GET_PARAMETER") operation = &CRtspServer::KeepAlive;
    if (operation == nullptr) return {501, {{"Public", std::string(publicMethods)}}, {}};
    const int status = CheckSession(connection, request, *path);
    return status == 200 ? (this->*operation)() : SRtspReply{status, {}, {}};
}

SRtspReply CRtspServer::Setup(ConnectionId connection, const SRtspRequest& request,
                              std::string_view path) {
    if (current && current->connection == connection) return WrongState();
    std::optional<double> rate;
    const int status = responses->CheckSetup(path, rate);
    if (status != 200) return {status, {}, {}};
    const std::string* const transport = request.Find("Transport");
    if (transport == nullptr) return {400, {}, {}};
    const auto clientPorts = ParseClientPorts(*transport);
    if (!clientPorts) return {461, {}, {}};
    if (current) return {453, {}, {}};

    current = SRtspSession{++sessionsMade,
                           responses->SessionId(random()),
                           connection,
                           std::string(WithoutQuery(path)),
                           rate,
                           clientPorts->rtp,
                           clientPorts->rtcp};
    std::string chosen = "RTP/AVP;unicast;client_port=" + PortPairText(*clientPorts);
    if (!settings.Has(EQuirk::NoServerPort)) chosen += ";server_port=" + PortPairText(serverPorts);
    return {200, {{"Session", current->id + TimeoutParameter()}, {"Transport", chosen}}, {}};
}

SRtspReply CRtspServer::Play() {
    if (current->playing) return WrongState();
    if (settings.Has(EQuirk::RefusePlay)) return {500, {}, {}};
    const bool resumes = std::exchange(current->played, true);
    current->playing = true;
    std::string id = current->id;
    if (settings.Has(EQuirk::SessionTimeoutInPlay)) id += TimeoutParameter();
    return {200, {{"Session", id}}, {}, resumes};
}

SRtspReply CRtspServer::Pause() {
    if (!current->playing || settings.Has(EQuirk::RefusePause)) return WrongState();
    current->playing = false;
    return {200, {{"Session", current->id}}, {}};
}

SRtspReply CRtspServer::KeepAlive() { return {200, {{"Session", current->id}}, {}}; }

SRtspReply CRtspServer::Teardown() {
    if (settings.Has(EQuirk::RefuseTeardown)) return {500, {}, {}};
    current.reset();
    return {200, {}, {}};
}

int CRtspServer::CheckSession(ConnectionId connection, const SRtspRequest& request,
                              std::string_view path) const {
    const std::string* const id = request.Find("Session");
    if (id == nullptr || !current || current->connection != connection) return 454;
    if (Trim(std::string_view(*id).substr(0, id->find(';'))) != current->id) return 454;
    return responses->NamesStream(WithoutQuery(path), current->setupPath) ? 200 : 404;
}

SRtspReply CRtspServer::WrongState() const {
    const std::string_view allowed = current->playing ? "OPTIONS, DESCRIBE, PAUSE, TEARDOWN"
                                                      : "OPTIONS, DESCRIBE, PLAY, TEARDOWN";
    return {455, {{"Allow", std::string(allowed)}}, {}};
}

std::string CRtspServer::TimeoutParameter() const {
    constexpr int unlimited = 60;  // a camera without a limit states the usual one
    const int seconds = settings.sessionTimeoutSeconds;
    return ";timeout=" + std::to_string(seconds != 0 ? seconds : unlimited);
}

}  // namespace korusim
