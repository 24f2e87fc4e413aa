/// One RTSP response (RFC 2326 section 7): status line, headers, body. The parser is pure and
/// accepts lines; `ReadLine` and `ReadResponse` feed it from the control socket.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "Socket.h"

namespace qmx::cam {

/// Maps the header names of one response to their values. Names are compared byte for byte, with
/// their case: the cameras of this kind all spell them in the same way.
using CRtspHeaders = std::map<std::string, std::string>;

/// A line that reaches this many characters, not counting carriage returns, is refused.
inline constexpr std::size_t lineLimit = 8192;
/// Largest body that is accepted, in bytes. Descriptions of real cameras are far smaller.
inline constexpr std::uint32_t bodyLimit = 32768;
/// Returned by `ReadResponse` when it could not read a well-formed response.
inline constexpr std::int32_t noResponse = -1;

enum class ELineStep { More, Complete, TooLong };

/// Appends one received byte to a line. A line feed completes the line and is not stored; carriage
/// returns are dropped wherever they occur; any other byte, including NUL, is stored.
[[nodiscard]] ELineStep AppendToLine(std::string& line, char byte);

/// Parses the head of a response line by line.
class CResponseHeadParser {
   public:
    enum class EStep { NextLine, Finished, Malformed };

    explicit CResponseHeadParser(CRtspHeaders& responseHeaders) : headers(responseHeaders) {}

    /// Parses one line, given without its end. After `Finished` the status and the body's length
    /// are known; after `Malformed` the response must be given up.
    [[nodiscard]] EStep ParseLine(const std::string& line);
    [[nodiscard]] std::int32_t status() const noexcept { return statusCode; }
    /// Length of the body that follows, in bytes; at most `bodyLimit`.
    [[nodiscard]] std::uint32_t bodyLength() const noexcept { return contentLength; }

   private:
    EStep ParseStatusLine(const std::string& line);
    EStep ParseHeader(const std::string& line);
    EStep ParseEmptyLine();

    CRtspHeaders& headers;
    bool statusSeen = false;
    std::int32_t statusCode = noResponse;
    std::uint32_t contentLength = 0;
};

/// Reads one line, byte by byte, so that nothing after it is taken from the socket. Returns false
/// when the connection has closed, the receive time-out has passed, or the line is too long.
[[nodiscard]] bool ReadLine(platform::SocketHandle socket, std::string& line);

/// Reads one response and returns its status code, or `noResponse`. After a failure the rest of the
/// response stays unread: the reader does not try to resynchronise. Each byte of the head, and the
/// body as a whole, may take as long as the socket's receive time-out; the body must arrive in one
/// piece.
[[nodiscard]] std::int32_t ReadResponse(platform::SocketHandle socket, CRtspHeaders& headers,
                                        std::string& body);

/// Returns true when there is a "CSeq" and its number is the expected one.
[[nodiscard]] bool CheckCSeq(const CRtspHeaders& headers, std::uint32_t expected);

/// Returns true when there is a "Session" whose whole value is the id; a parameter after the id
/// makes it fail.
[[nodiscard]] bool CheckSession(const CRtspHeaders& headers, const std::string& sessionId);

}  // namespace qmx::cam
