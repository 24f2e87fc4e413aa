#include "RtspRequest.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace korusim {
namespace {

/// Limit of request line and headers together, in bytes. Real ones have about 200.
constexpr std::size_t maxHeadBytes = 8192;
/// Limit of a body, in bytes. Bodies are skipped: no supported request has one.
constexpr std::size_t maxBodyBytes = 65536;

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

/// Returns the line that begins at `begin`, without its end, and moves `begin` past it. The text
/// must contain that line end.
std::string_view TakeLine(std::string_view text, std::size_t& begin) {
    const std::size_t end = text.find('\n', begin);
    std::string_view line = text.substr(begin, end - begin);
    if (line.ends_with('\r')) line.remove_suffix(1);
    begin = end + 1;
    return line;
}

/// Returns the length of the head including its empty line, or 0 if that has not arrived yet.
std::size_t HeadLength(std::string_view text) {
    for (std::size_t begin = 0; text.find('\n', begin) != std::string_view::npos;) {
        if (TakeLine(text, begin).empty()) return begin;
    }
    return 0;
}

bool ParseRequestLine(std::string_view line, SRtspRequest& request) {
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == 0 || last <= first + 1) return false;
    request.method = line.substr(0, first);
    request.url = line.substr(first + 1, last - first - 1);
    request.version = line.substr(last + 1);
    return request.url.find(' ') == std::string::npos && request.version.starts_with("RTSP/");
}

bool ParseHeaderLine(std::string_view line, SRtspRequest& request) {
    const auto isControl = [](char c) {
        return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F;
    };
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    const std::string_view name = line.substr(0, colon);
    if (name.find_first_of(" \t") != std::string_view::npos) return false;
    if (std::ranges::any_of(line, isControl)) return false;
    request.headers.emplace_back(name, Trim(line.substr(colon + 1)));
    return true;
}

bool ParseHead(std::string_view head, SRtspRequest& request) {
    std::size_t begin = 0;
    bool good = ParseRequestLine(TakeLine(head, begin), request);
    // The rest is parsed all the same: the response to a malformed request should contain its CSeq.
    for (;;) {
        const std::string_view line = TakeLine(head, begin);
        if (line.empty()) return good;
        good = ParseHeaderLine(line, request) && good;
    }
}

/// Parses the length of the body that follows. Returns false if it is not a number.
bool BodyLength(const SRtspRequest& request, std::size_t& length) {
    length = 0;
    const std::string* const text = request.Find("Content-Length");
    if (text == nullptr) return true;
    const char* const last = text->data() + text->size();
    const auto [end, error] = std::from_chars(text->data(), last, length);
    return error == std::errc() && end == last && length <= maxBodyBytes;
}

}  // namespace

bool SameWord(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, {}, Lower, Lower);
}

std::string_view Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

const std::string* SRtspRequest::Find(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (SameWord(key, name)) return &value;
    }
    return nullptr;
}

void CRtspRequestReader::SkipBody() {
    const std::size_t skipped = std::min(bodyLeft, buffered.size());
    buffered.erase(0, skipped);
    bodyLeft -= skipped;
}

ERtspRead CRtspRequestReader::Next(SRtspRequest& request) {
    SkipBody();
    // Empty lines before a request are allowed (RFC 2326, 4.1 refers to HTTP).
    buffered.erase(0, std::min(buffered.find_first_not_of("\r\n"), buffered.size()));
    request = {};
    const std::size_t length = HeadLength(std::string_view(buffered).substr(0, maxHeadBytes));
    if (length == 0) {
        return buffered.size() >= maxHeadBytes ? ERtspRead::Broken : ERtspRead::NeedMore;
    }
    const bool good = ParseHead(std::string_view(buffered).substr(0, length), request);
    buffered.erase(0, length);
    if (!BodyLength(request, bodyLeft)) return ERtspRead::Broken;
    return good ? ERtspRead::Request : ERtspRead::Malformed;
}

}  // namespace korusim
