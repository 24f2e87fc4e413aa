#include "RtspProbe.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "CameraProbe.h"
#include "Failure.h"

namespace hostkit {
namespace {

constexpr std::uint32_t connectLimit = 2000;   // milliseconds
constexpr std::uint32_t responseLimit = 5000;  // likewise
constexpr std::size_t maxResponse = 65536;
constexpr int notEnoughBandwidth = 453;
constexpr std::string_view version = "RTSP/1.0 ";

bool EqualInEitherCase(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, [](unsigned char a, unsigned char b) {
        return std::tolower(a) == std::tolower(b);
    });
}

std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\r')) text.remove_suffix(1);
    return text;
}

/// Removes and returns the first line, without its end.
std::string_view NextLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return Trimmed(line);
}

std::size_t Number(std::string_view text) {
    std::size_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

SRefusal Refused(const char* method, const std::optional<SRtspResponse>& response) {
    constexpr const char* restart = "restart the camera";
    if (!response) return {std::string("it did not respond to ") + method, restart};
    const std::string text = std::string("it refused ") + method + " with " +
                             std::to_string(response->status) + " " + Printable(response->reason);
    if (response->status != notEnoughBandwidth) return {text, restart};
    return {text + ": another client is streaming",
            "end the other client: a camera serves one stream at a time"};
}

/// A UDP port of this process, so that the packets of a probe reach no other program.
struct SPort {
    platform::CSocket socket{platform::OpenUdpSocket()};
    std::string number = "0";

    SPort() {
        if (!socket.valid() || !platform::BindToAnyPort(socket.handle())) return;
        number = std::to_string(platform::LocalPort(socket.handle()).value_or(0));
    }
};

}  // namespace

std::string RtspHeader(const SRtspResponse& response, std::string_view name) {
    std::string_view rest = response.head;
    while (!rest.empty()) {
        const std::string_view line = NextLine(rest);
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos || !EqualInEitherCase(line.substr(0, colon), name)) {
            continue;
        }
        return std::string(Trimmed(line.substr(colon + 1)));
    }
    return {};
}

std::optional<SRtspResponse> ParseRtspResponse(std::string_view bytes) {
    constexpr std::string_view headEnd = "\r\n\r\n";
    const std::size_t end = bytes.find(headEnd);
    if (end == std::string_view::npos) return std::nullopt;
    SRtspResponse response;
    response.head = bytes.substr(0, end + 2);
    std::string_view rest = response.head;
    std::string_view status = NextLine(rest);
    if (status.starts_with(version)) {
        status.remove_prefix(version.size());
        response.status = static_cast<int>(std::min<std::size_t>(Number(status), 999));
        const std::size_t blank = std::min(status.find(' '), status.size());
        response.reason = Trimmed(status.substr(blank));
    }
    const std::size_t length = Number(RtspHeader(response, "Content-Length"));
    bytes.remove_prefix(end + headEnd.size());
    if (bytes.size() < length) return std::nullopt;
    response.body = bytes.substr(0, length);
    return response;
}

CRtspProbe::CRtspProbe(const std::string& address) : host(address) {
    const auto number = platform::ParseIpv4(address.c_str());
    if (!number) return;
    platform::CSocket opened(platform::OpenTcpSocket());
    if (!opened.valid() ||
        !platform::ConnectWithTimeout(
            opened.handle(), platform::MakeSocketAddress(*number, rtspPort), connectLimit)) {
        return;
    }
    (void)platform::SetReceiveTimeout(opened.handle(), responseLimit);
    socket = std::move(opened);
}

std::optional<SRtspResponse> CRtspProbe::Request(std::string_view method, std::string_view path,
                                                 std::string_view headers) {
    if (!socket.valid()) return std::nullopt;
    std::string text(method);
    text += path == "*" ? " *" : " rtsp://" + host + ":" + std::to_string(rtspPort);
    if (path != "*") text += path;
    text += " RTSP/1.0\r\nCSeq: " + std::to_string(++sequence) + "\r\n";
    text += headers;
    text += "\r\n";
    const auto size = static_cast<std::ptrdiff_t>(text.size());
    if (platform::Send(socket.handle(), text.data(), text.size()) != size) return std::nullopt;
    std::string received;
    while (received.size() < maxResponse) {
        char buffer[4096];
        const std::ptrdiff_t more = platform::Receive(socket.handle(), buffer, sizeof(buffer));
        if (more <= 0) return std::nullopt;
        received.append(buffer, static_cast<std::size_t>(more));
        if (auto response = ParseRtspResponse(received)) return response;
    }
    return std::nullopt;
}

SStreamPaths StreamPaths(const std::string& type, std::uint16_t width, std::uint16_t height,
                         std::string_view description) {
    if (type != "raw") {
        const std::string path = type == "jls" ? "/mjls" : "/mjpg";
        return {path + "/stream=0", path};
    }
    constexpr std::string_view key = "a=framesize:";
    const std::string size = " " + std::to_string(width) + "-" + std::to_string(height);
    while (!description.empty()) {
        const std::string_view line = NextLine(description);
        if (!line.starts_with(key) || !line.ends_with(size)) continue;
        const std::string_view payload = line.substr(key.size(), line.find(' ') - key.size());
        const std::string path = "/sid=" + std::string(payload);
        return {path, path};
    }
    return {};
}

std::optional<SRefusal> StreamRefusal(const std::string& address, const std::string& type,
                                      std::uint16_t width, std::uint16_t height) {
    CRtspProbe probe(address);
    if (!probe.connected()) {
        return SRefusal{"it does not accept connections to TCP port 554",
                        "check that it is on and in this network"};
    }
    const auto description = probe.Request("DESCRIBE", "/", "Accept: application/sdp\r\n");
    const SStreamPaths paths =
        StreamPaths(type, width, height, description ? description->body : std::string());
    if (paths.setup.empty()) {
        return SRefusal{"it no longer describes this size", "list its formats again"};
    }
    const SPort rtp;
    const SPort rtcp;
    const auto setup = probe.Request(
        "SETUP", paths.setup,
        "Transport: RTP/AVP;unicast;client_port=" + rtp.number + "-" + rtcp.number + "\r\n");
    if (!setup || !setup->ok()) return Refused("SETUP", setup);
    if (RtspHeader(*setup, "Transport").find("server_port=") == std::string::npos) {
        return SRefusal{"its response to SETUP does not contain the ports from which it sends",
                        "update the camera's firmware"};
    }
    const std::string id = RtspHeader(*setup, "Session");
    const std::string session = "Session: " + id.substr(0, id.find(';')) + "\r\n";
    const auto play = probe.Request("PLAY", paths.control, session);
    (void)probe.Request("TEARDOWN", paths.control, session);  // or the connection ends it
    if (play && play->ok()) return std::nullopt;
    return Refused("PLAY", play);
}

}  // namespace hostkit
