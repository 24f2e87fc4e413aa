#include "RtspResponse.h"

#include <string_view>

#include "RtspText.h"

namespace qmx::cam {
namespace {

constexpr std::string_view versionText = "RTSP/1.0 ";
constexpr std::size_t statusAt = versionText.size();
constexpr std::size_t statusLineShortest = statusAt + 3;
constexpr char contentLengthName[] = "Content-Length";

}  // namespace

ELineStep AppendToLine(std::string& line, char byte) {
    if (byte == '\n') return ELineStep::Complete;
    if (byte != '\r') line.push_back(byte);
    return line.size() >= lineLimit ? ELineStep::TooLong : ELineStep::More;
}

CResponseHeadParser::EStep CResponseHeadParser::ParseLine(const std::string& line) {
    if (!statusSeen) return ParseStatusLine(line);
    return line.empty() ? ParseEmptyLine() : ParseHeader(line);
}

CResponseHeadParser::EStep CResponseHeadParser::ParseStatusLine(const std::string& line) {
    if (line.size() < statusLineShortest || !line.starts_with(versionText)) return EStep::Malformed;
    for (std::size_t i = statusAt; i < statusLineShortest; ++i) {
        if (!IsDigit(line[i])) return EStep::Malformed;
    }
    // Further digits count as well: a status of four digits is one that no caller accepts.
    statusCode = static_cast<std::int32_t>(ParseUnsigned(std::string_view(line).substr(statusAt)));
    statusSeen = true;
    return EStep::NextLine;
}

CResponseHeadParser::EStep CResponseHeadParser::ParseHeader(const std::string& line) {
    const std::size_t colon = line.find(':');
    if (colon == 0 || colon == std::string::npos) return EStep::Malformed;
    const std::size_t valueAt = line.find_first_not_of(' ', colon + 1);
    if (valueAt == std::string::npos) return EStep::Malformed;
    const std::string value = line.substr(valueAt);
    const auto [entry, isNew] = headers.try_emplace(line.substr(0, colon), value);
    if (isNew) return EStep::NextLine;
    if (entry->first == contentLengthName) return EStep::Malformed;
    entry->second += ',';
    entry->second += value;
    return EStep::NextLine;
}

CResponseHeadParser::EStep CResponseHeadParser::ParseEmptyLine() {
    const auto length = headers.find(contentLengthName);
    if (length == headers.end()) return EStep::Finished;
    contentLength = ParseUnsigned(length->second);
    return contentLength > bodyLimit ? EStep::Malformed : EStep::Finished;
}

bool ReadLine(platform::SocketHandle socket, std::string& line) {
    line.clear();
    for (;;) {
        char byte = 0;
        if (platform::Receive(socket, &byte, 1) != 1) return false;
        const ELineStep step = AppendToLine(line, byte);
        if (step != ELineStep::More) return step == ELineStep::Complete;
    }
}

std::int32_t ReadResponse(platform::SocketHandle socket, CRtspHeaders& headers, std::string& body) {
    headers.clear();
    body.clear();
    CResponseHeadParser head(headers);
    std::string line;
    CResponseHeadParser::EStep step = CResponseHeadParser::EStep::NextLine;
    while (step == CResponseHeadParser::EStep::NextLine) {
        if (!ReadLine(socket, line)) return noResponse;
        step = head.ParseLine(line);
    }
    if (step == CResponseHeadParser::EStep::Malformed) return noResponse;
    if (head.bodyLength() == 0) return head.status();

    // A single receive: the cameras send a response in one piece, and any other one is refused.
    body.resize(head.bodyLength());
    const std::ptrdiff_t received = platform::Receive(socket, body.data(), body.size());
    body.resize(received > 0 ? static_cast<std::size_t>(received) : 0);
    return body.size() == head.bodyLength() ? head.status() : noResponse;
}

bool CheckCSeq(const CRtspHeaders& headers, std::uint32_t expected) {
    const auto sequence = headers.find("CSeq");
    return sequence != headers.end() && ParseUnsigned(sequence->second) == expected;
}

bool CheckSession(const CRtspHeaders& headers, const std::string& sessionId) {
    const auto session = headers.find("Session");
    return session != headers.end() && session->second == sessionId;
}

}  // namespace qmx::cam
