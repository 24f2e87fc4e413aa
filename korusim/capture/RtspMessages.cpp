#include "RtspMessages.h"

#include <algorithm>
#include <charconv>

#include "RtspRequest.h"

namespace korusim {
namespace {

/// Limits in bytes of the start line with the headers, and of a body. Longer messages are skipped.
constexpr std::size_t maxHeadBytes = 16'384;
constexpr std::size_t maxBodyBytes = 262'144;
constexpr std::size_t maxHeaders = 100;
/// Most requests of a connection that wait for their response.
constexpr std::size_t maxPending = 64;
/// A byte '$', the channel, and the length of the data in 2 bytes.
constexpr std::size_t interleavedHeadBytes = 4;

/// Returns the line that begins at `begin`, without its end, and moves `begin` past it; nothing if
/// its end is missing.
std::optional<std::string_view> TakeLine(std::string_view text, std::size_t& begin) {
    const std::size_t end = text.find('\n', begin);
    if (end == std::string_view::npos) return std::nullopt;
    std::string_view line = text.substr(begin, end - begin);
    if (line.ends_with('\r')) line.remove_suffix(1);
    begin = end + 1;
    return line;
}

bool IsStartLine(std::string_view line) {
    return line.starts_with("RTSP/1.0 ") || line.ends_with(" RTSP/1.0");
}

std::size_t BodyLength(const SRtspMessage& message) {
    const std::string* const text = message.Find("Content-Length");
    std::size_t length = 0;
    if (text != nullptr) std::from_chars(text->data(), text->data() + text->size(), length);
    return length;
}

/// Parses start line and headers. Returns the number of bytes up to the body; nothing if they are
/// not complete.
std::optional<std::size_t> ParseHead(std::string_view text, SRtspMessage& message) {
    std::size_t at = 0;
    message.startLine = TakeLine(text, at).value_or("");
    while (const auto line = TakeLine(text, at)) {
        if (line->empty()) return at;
        const std::size_t colon = line->find(':');
        if (colon == std::string_view::npos || message.headers.size() == maxHeaders) continue;
        message.headers.emplace_back(line->substr(0, colon), Trim(line->substr(colon + 1)));
    }
    return std::nullopt;
}

}  // namespace

const std::string* SRtspMessage::Find(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (SameWord(key, name)) return &value;
    }
    return nullptr;
}

void CRtspMessageReader::Feed(std::string_view bytes, bool afterGap) {
    if (afterGap) {
        buffered.clear();
        skip = 0;
    }
    const std::size_t skipped = std::min(skip, bytes.size());
    skip -= skipped;
    buffered += bytes.substr(skipped);
}

/// Removes everything before the next start line. Returns false if there is none yet.
bool CRtspMessageReader::SkipToMessage() {
    std::size_t at = 0;
    bool found = false;
    while (!found && at < buffered.size()) {
        if (buffered[at] == '$') {
            if (buffered.size() - at < interleavedHeadBytes) break;
            const std::size_t length = static_cast<std::uint8_t>(buffered[at + 2]) * 256U +
                                       static_cast<std::uint8_t>(buffered[at + 3]);
            at += interleavedHeadBytes + length;
            continue;
        }
        std::size_t end = at;
        const auto line = TakeLine(buffered, end);
        if (!line) {
            if (buffered.size() - at > maxHeadBytes) at = buffered.size();
            break;
        }
        found = IsStartLine(*line);
        if (!found) at = end;
    }
    if (at > buffered.size()) skip = at - buffered.size();
    buffered.erase(0, std::min(at, buffered.size()));
    return found;
}

std::optional<SRtspMessage> CRtspMessageReader::Next() {
    while (SkipToMessage()) {
        SRtspMessage message;
        const auto headBytes = ParseHead(buffered, message);
        if (!headBytes) {
            if (buffered.size() <= maxHeadBytes) return std::nullopt;
            buffered.clear();
            continue;
        }
        const std::size_t bodyBytes = BodyLength(message);
        const std::size_t captured = buffered.size() - *headBytes;
        if (bodyBytes > maxBodyBytes) {
            skip = bodyBytes - std::min(bodyBytes, captured);
            buffered.erase(0, *headBytes + std::min(bodyBytes, captured));
            continue;
        }
        if (captured < bodyBytes) return std::nullopt;
        message.body = buffered.substr(*headBytes, bodyBytes);
        buffered.erase(0, *headBytes + bodyBytes);
        return message;
    }
    return std::nullopt;
}

std::optional<SRtspExchange> CRtspConversation::Add(SRtspMessage message) {
    const std::string* const cseq = message.Find("CSeq");
    if (cseq == nullptr) return std::nullopt;
    if (!message.IsResponse()) {
        if (pending.size() == maxPending) pending.erase(pending.begin());
        const std::string key = *cseq;
        pending.insert_or_assign(key, std::move(message));
        return std::nullopt;
    }
    const auto request = pending.find(*cseq);
    if (request == pending.end()) return std::nullopt;
    SRtspExchange exchange{{}, {}, std::move(request->second), std::move(message), 0};
    pending.erase(request);
    const std::string_view line = exchange.request.startLine;
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == last) return std::nullopt;
    exchange.method = line.substr(0, first);
    exchange.url = line.substr(first + 1, last - first - 1);
    const std::string_view status = std::string_view(exchange.response.startLine).substr(9);
    std::from_chars(status.data(), status.data() + status.size(), exchange.status);
    return exchange;
}

SUrlParts SplitUrl(std::string_view url) {
    constexpr std::string_view scheme = "rtsp://";
    if (!SameWord(url.substr(0, scheme.size()), scheme)) return {};
    url.remove_prefix(scheme.size());
    const std::size_t slash = url.find('/');
    if (slash == std::string_view::npos) return {url, "/"};
    return {url.substr(0, slash), url.substr(slash)};
}

std::optional<std::string_view> FindParameter(std::string_view header, std::string_view name) {
    while (!header.empty()) {
        const std::size_t end = std::min(header.find(';'), header.size());
        const std::string_view piece = Trim(header.substr(0, end));
        const std::size_t equals = std::min(piece.find('='), piece.size());
        if (SameWord(piece.substr(0, equals), name)) {
            return piece.substr(std::min(equals + 1, piece.size()));
        }
        header.remove_prefix(std::min(end + 1, header.size()));
    }
    return std::nullopt;
}

}  // namespace korusim
