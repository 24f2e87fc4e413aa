#include "RtspServer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

namespace korusim {
namespace {

constexpr std::string_view serverName = "korusim/0.1";
constexpr std::string_view publicMethods =
    "OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, GET_PARAMETER, TEARDOWN";
constexpr std::string_view descriptionType = "application/sdp";

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

std::string_view ReasonOf(int status) {
    const auto found = std::ranges::find(reasons, status, &SReason::status);
    return found != reasons.end() ? found->text : std::string_view("Unknown");
}

/// Returns the path of an RTSP URL with its query, or nothing if it is not such a URL. A URL that
/// ends with the port has the path "/".
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

/// Returns the base of the relative control URLs in the description at a URL: the URL as a folder.
std::string BaseOf(const std::string& url) { return url.ends_with('/') ? url : url + '/'; }

/// Returns true if a path names the stream that was set up: by the path of SETUP, or by the path of
/// its description, "/mjpg" for "/mjpg/stream=0" and "/" for "/sid=96". Players name the latter by
/// the base of the description, with a slash at the end.
bool NamesStream(std::string_view path, std::string_view setupPath) {
    const std::string_view folder = setupPath.substr(0, setupPath.rfind('/'));
    return path == setupPath || path == folder || path == BaseOf(std::string(folder));
}

/// Parses "?frate=N" after the path of a compressed stream; without a query there is no rate.
/// Returns false for any other query and for a rate that is not a whole number of frames per
/// second.
bool ParseRateQuery(std::string_view path, std::optional<double>& rate) {
    constexpr std::string_view key = "?frate=";
    const std::string_view query = path.substr(WithoutQuery(path).size());
    if (query.empty()) return true;
    if (!query.starts_with(key)) return false;
    std::uint32_t number = 0;
    const char* const last = query.data() + query.size();
    const auto [end, error] = std::from_chars(query.data() + key.size(), last, number);
    if (error != std::errc() || end != last) return false;
    rate = number;
    return number > 0 && number <= maxFrameRate;
}

}  // namespace

CRtspServer::CRtspServer(const SCameraSettings& cameraSettings, SPortPair ports)
    : settings(cameraSettings), serverPorts(ports), random(settings.seed) {}

SRtspResponse CRtspServer::Respond(ConnectionId connection, const SRtspRequest& request) {
    return Format(Dispatch(connection, request), request);
}

SRtspResponse CRtspServer::Refuse(const SRtspRequest& request) const {
    return Format(SReply{400, {}, {}}, request);
}

void CRtspServer::ConnectionClosed(ConnectionId connection) {
    if (current && current->connection == connection) current.reset();
}

CRtspServer::SReply CRtspServer::Dispatch(ConnectionId connection, const SRtspRequest& request) {
    if (request.version != "RTSP/1.0") return {505, {}, {}};
    if (request.Find("CSeq") == nullptr) return {400, {}, {}};
    if (request.method == "OPTIONS") return {200, {{"Public", std::string(publicMethods)}}, {}};
    const auto path = PathOf(request.url);
    if (!path) return {400, {}, {}};
    if (request.method == "DESCRIBE") return Describe(request, *path);
    if (request.method == "SETUP") return Setup(connection, request, *path);

    using Operation = SReply (CRtspServer::*)();
    Operation operation = nullptr;
    if (request.method == "PLAY") operation = &CRtspServer::Play;
    if (request.method == "PAUSE") operation = &CRtspServer::Pause;
    if (request.method == "TEARDOWN") operation = &CRtspServer::Teardown;
    if (request.method == "GET_PARAMETER") operation = &CRtspServer::KeepAlive;
    if (operation == nullptr) return {501, {{"Public", std::string(publicMethods)}}, {}};
    const int status = CheckSession(connection, request, *path);
    return status == 200 ? (this->*operation)() : SReply{status, {}, {}};
}

CRtspServer::SReply CRtspServer::Describe(const SRtspRequest& request,
                                          std::string_view path) const {
    const std::string* const accept = request.Find("Accept");
    if (accept != nullptr && accept->find(descriptionType) == std::string::npos &&
        accept->find("*/*") == std::string::npos) {
        return {406, {}, {}};
    }
    const auto formats = FormatsAt(settings, path);
    if (formats.empty()) return {404, {}, {}};
    return {200,
            {{"Content-Base", BaseOf(request.url)}, {"Content-Type", std::string(descriptionType)}},
            DescribeFormats(settings, formats)};
}

CRtspServer::SReply CRtspServer::Setup(ConnectionId connection, const SRtspRequest& request,
                                       std::string_view path) {
    if (current && current->connection == connection) return WrongState();
    const auto format = FormatToSetUp(settings, WithoutQuery(path));
    if (!format) return {404, {}, {}};
    std::optional<double> rate;
    if (format->encoding != EEncoding::Raw && !ParseRateQuery(path, rate)) return {400, {}, {}};
    const std::string* const transport = request.Find("Transport");
    if (transport == nullptr) return {400, {}, {}};
    const auto clientPorts = ParseClientPorts(*transport);
    if (!clientPorts) return {461, {}, {}};
    if (current) return {453, {}, {}};

    current = SRtspSession{++sessionsMade,
                           NewSessionId(),
                           connection,
                           *format,
                           std::string(WithoutQuery(path)),
                           rate,
                           clientPorts->rtp,
                           clientPorts->rtcp,
                           false};
    std::string chosen = "RTP/AVP;unicast;client_port=" + PortPairText(*clientPorts);
    if (!settings.Has(EQuirk::NoServerPort)) chosen += ";server_port=" + PortPairText(serverPorts);
    return {200, {{"Session", current->id + TimeoutParameter()}, {"Transport", chosen}}, {}};
}

CRtspServer::SReply CRtspServer::Play() {
    if (current->playing) return WrongState();
    if (settings.Has(EQuirk::RefusePlay)) return {500, {}, {}};
    current->playing = true;
    std::string id = current->id;
    if (settings.Has(EQuirk::SessionTimeoutInPlay)) id += TimeoutParameter();
    return {200, {{"Session", id}}, {}};
}

CRtspServer::SReply CRtspServer::Pause() {
    if (!current->playing || settings.Has(EQuirk::RefusePause)) return WrongState();
    current->playing = false;
    return {200, {{"Session", current->id}}, {}};
}

CRtspServer::SReply CRtspServer::KeepAlive() { return {200, {{"Session", current->id}}, {}}; }

CRtspServer::SReply CRtspServer::Teardown() {
    if (settings.Has(EQuirk::RefuseTeardown)) return {500, {}, {}};
    current.reset();
    return {200, {}, {}};
}

int CRtspServer::CheckSession(ConnectionId connection, const SRtspRequest& request,
                              std::string_view path) const {
    const std::string* const id = request.Find("Session");
    if (id == nullptr || !current || current->connection != connection) return 454;
    if (Trim(std::string_view(*id).substr(0, id->find(';'))) != current->id) return 454;
    return NamesStream(WithoutQuery(path), current->setupPath) ? 200 : 404;
}

CRtspServer::SReply CRtspServer::WrongState() const {
    const std::string_view allowed = current->playing ? "OPTIONS, DESCRIBE, PAUSE, TEARDOWN"
                                                      : "OPTIONS, DESCRIBE, PLAY, TEARDOWN";
    return {455, {{"Allow", std::string(allowed)}}, {}};
}

std::string CRtspServer::TimeoutParameter() const {
    constexpr int unlimited = 60;  // a camera without a limit states the usual one
    const int seconds = settings.sessionTimeoutSeconds;
    return ";timeout=" + std::to_string(seconds != 0 ? seconds : unlimited);
}

std::string CRtspServer::NewSessionId() {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string id;
    for (std::uint64_t bits = random(); id.size() < 16; bits >>= 4) id += digits[bits & 15];
    return id;
}

std::string CRtspServer::HeaderLine(std::string_view name, std::string_view value) const {
    std::string line(name);
    if (settings.Has(EQuirk::LowerCaseHeaders)) {
        std::ranges::transform(line, line.begin(), [](char c) {
            return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
        });
    }
    return line + ": " + std::string(value) + "\r\n";
}

SRtspResponse CRtspServer::Format(const SReply& reply, const SRtspRequest& request) const {
    SRtspResponse response;
    response.head = "RTSP/1.0 " + std::to_string(reply.status) + " " +
                    std::string(ReasonOf(reply.status)) + "\r\n";
    const std::string* const sequence = request.Find("CSeq");
    if (sequence != nullptr) response.head += HeaderLine("CSeq", *sequence);
    response.head += HeaderLine("Server", serverName);
    for (const auto& [name, value] : reply.headers) response.head += HeaderLine(name, value);
    if (!reply.body.empty()) {
        response.head += HeaderLine("Content-Length", std::to_string(reply.body.size()));
    }
    response.head += "\r\n";
    response.body = reply.body;
    return response;
}

}  // namespace korusim
