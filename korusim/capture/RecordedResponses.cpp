#include "RecordedResponses.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace korusim {
namespace {

std::string_view PathOfExchange(const SRtspExchange& exchange) {
    return SplitUrl(exchange.url).path;
}

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    });
    return lower;
}

bool WritesLowerCase(const std::vector<SRtspExchange>& exchanges) {
    return std::ranges::any_of(exchanges, [](const SRtspExchange& each) {
        return std::ranges::any_of(each.response.headers,
                                   [](const auto& header) { return header.first == "cseq"; });
    });
}

}  // namespace

CRecordedResponses::CRecordedResponses(std::shared_ptr<const SRecordedResponses> recordedResponses,
                                       std::string address)
    : recorded(std::move(recordedResponses)),
      ownAddress(std::move(address)),
      lowerCase(WritesLowerCase(recorded->exchanges)) {}

/// OPTIONS may name any path, and a query may differ. An exact match counts first.
const SRtspExchange* CRecordedResponses::Find(std::string_view method,
                                              std::string_view path) const {
    const SRtspExchange* found = nullptr;
    for (const SRtspExchange& each : recorded->exchanges) {
        if (each.method != method) continue;
        if (PathOfExchange(each) == path) return &each;
        const bool similar = WithoutQuery(PathOfExchange(each)) == WithoutQuery(path);
        if (found == nullptr && (similar || method == "OPTIONS")) found = &each;
    }
    return found;
}

SRtspReply CRecordedResponses::Describe(const SRtspRequest&, std::string_view path) const {
    const SRtspExchange* const exchange = Find("DESCRIBE", path);
    if (exchange == nullptr) return {404, {}, {}};
    return {exchange->status,
            {},
            Readdress(exchange->response.body, SplitUrl(exchange->url).authority)};
}

int CRecordedResponses::CheckSetup(std::string_view path, std::optional<double>&) const {
    const std::string_view setupPath = PathOfExchange(recorded->exchanges.front());
    return WithoutQuery(path) == WithoutQuery(setupPath) ? 200 : 404;
}

bool CRecordedResponses::NamesStream(std::string_view path, std::string_view setupPath) const {
    return IsSetupPathOrFolder(path, setupPath) || Find("PLAY", path) != nullptr;
}

std::string CRecordedResponses::SessionId(std::uint64_t) const { return recorded->session; }

SRtspResponse CRecordedResponses::Format(const SRtspReply& reply,
                                         const SRtspRequest& request) const {
    const auto path = PathOf(request.url);
    // PLAY and the like name the stream by one of several paths.
    const SRtspExchange* exchange = path ? Find(request.method, *path) : nullptr;
    if (exchange == nullptr && request.method != "DESCRIBE" && request.method != "SETUP") {
        const auto same =
            std::ranges::find(recorded->exchanges, request.method, &SRtspExchange::method);
        if (same != recorded->exchanges.end()) exchange = &*same;
    }
    if (exchange == nullptr || exchange->status != reply.status) return FormatPlain(reply, request);
    return FormatRecorded(*exchange, reply, request);
}

SRtspResponse CRecordedResponses::FormatRecorded(const SRtspExchange& exchange,
                                                 const SRtspReply& reply,
                                                 const SRtspRequest& request) const {
    const std::string_view authority = SplitUrl(exchange.url).authority;
    const std::string* const cseq = request.Find("CSeq");
    SRtspResponse response{exchange.response.startLine + "\r\n", reply.body};
    for (const auto& [name, value] : exchange.response.headers) {
        std::string text = Readdress(value, authority);
        if (SameWord(name, "CSeq") && cseq != nullptr) text = *cseq;
        if (SameWord(name, "Content-Length")) text = std::to_string(reply.body.size());
        if (SameWord(name, "Transport") && !reply.headers.empty()) {
            text = Transport(value, reply.headers.back().second);
        }
        // It describes the first packet of the recording.
        if (SameWord(name, "RTP-Info") && reply.resumes) continue;
        response.head += name + ": " + text + "\r\n";
    }
    response.head += "\r\n";
    return response;
}

SRtspResponse CRecordedResponses::FormatPlain(const SRtspReply& reply,
                                              const SRtspRequest& request) const {
    SRtspResponse response{StatusLine(reply.status), reply.body};
    const auto add = [&](std::string_view name, std::string_view value) {
        response.head +=
            (lowerCase ? LowerCase(name) : std::string(name)) + ": " + std::string(value) + "\r\n";
    };
    if (const auto* cseq = request.Find("CSeq")) add("CSeq", *cseq);
    if (const auto* server = recorded->exchanges.front().response.Find("Server")) {
        add("Server", *server);
    }
    for (const auto& [name, value] : reply.headers) add(name, value);
    if (!reply.body.empty()) add("Content-Length", std::to_string(reply.body.size()));
    response.head += "\r\n";
    return response;
}

/// Returns the recorded Transport header with the ports of this session, which `chosen` contains,
/// and the SSRC of the packets that are sent. The addresses are left out: they are those of the
/// connection.
std::string CRecordedResponses::Transport(std::string_view own, std::string_view chosen) const {
    std::string text;
    while (!own.empty()) {
        const std::size_t end = std::min(own.find(';'), own.size());
        const std::string_view piece = own.substr(0, end);
        own.remove_prefix(std::min(end + 1, own.size()));
        const std::string_view key = Trim(piece.substr(0, piece.find('=')));
        std::string value(piece);
        if (SameWord(key, "source") || SameWord(key, "destination")) continue;
        if (SameWord(key, "client_port") || SameWord(key, "server_port")) {
            const auto port = FindParameter(chosen, key);
            if (!port) continue;
            value = std::string(key) + "=" + std::string(*port);
        }
        if (SameWord(key, "ssrc")) {
            std::array<char, 16> digits{};
            std::snprintf(digits.data(), digits.size(), "%08X", unsigned{recorded->ssrc});
            value = std::string(key) + "=" + digits.data();
        }
        text += (text.empty() ? "" : ";") + value;
    }
    return text;
}

std::string CRecordedResponses::Readdress(std::string_view text, std::string_view authority) const {
    constexpr std::string_view scheme = "rtsp://";
    std::string changed;
    for (;;) {
        const std::size_t at = text.find(scheme);
        changed += text.substr(0, at);
        if (at == std::string_view::npos) return changed;
        changed += scheme;
        text.remove_prefix(at + scheme.size());
        const std::string_view host = text.substr(0, text.find_first_of("/ \t\r\n,;\"?"));
        const bool own =
            host == authority || host.substr(0, host.find(':')) == recorded->recordedAddress;
        changed += own ? std::string_view(ownAddress) : host;
        text.remove_prefix(host.size());
    }
}

}  // namespace korusim
