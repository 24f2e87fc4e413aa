/// One RTSP answer (RFC 2326 section 7): status line, headers, body. The grammar is pure and takes
/// lines; `ReadLine` and `ReadResponse` feed it from the control socket.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "Socket.h"

namespace qmx::cam {

/// Header name to value for one answer. Names are matched byte for byte, case included: cameras of
/// this kind spell them as we expect, and a camera that doesn't is not one of ours.
using CRtspHeaders = std::map<std::string, std::string>;

/// A line fails on reaching this many characters, carriage returns not counted.
inline constexpr std::size_t lineLimit = 8192;
/// The largest body that is taken, in bytes; descriptions of real cameras stay far below.
inline constexpr std::uint32_t bodyLimit = 32768;
/// `ReadResponse` could not read a well-formed answer.
inline constexpr std::int32_t noResponse = -1;

enum class ELineStep { More, Complete, TooLong };

/// Takes one received byte into a line. A line feed completes the line and is not stored; carriage
/// returns vanish wherever they stand; any other byte, NUL included, is kept.
[[nodiscard]] ELineStep AppendToLine(std::string& line, char byte);

/// Takes the lines of an answer's head and says what comes next.
class CResponseHead {
   public:
    enum class EStep { NextLine, Finished, Malformed };

    explicit CResponseHead(CRtspHeaders& answerHeaders) : headers(answerHeaders) {}

    /// Takes one line, without its end. After `Finished` the status and the length are known.
    [[nodiscard]] EStep TakeLine(const std::string& line);
    [[nodiscard]] std::int32_t status() const noexcept { return statusCode; }
    /// Bytes of the body that follow, at most `bodyLimit`.
    [[nodiscard]] std::uint32_t bodyLength() const noexcept { return contentLength; }

   private:
    EStep TakeStatusLine(const std::string& line);
    EStep TakeHeader(const std::string& line);
    EStep TakeEmptyLine();

    CRtspHeaders& headers;
    bool statusSeen = false;
    std::int32_t statusCode = noResponse;
    std::uint32_t contentLength = 0;
};

/// Reads one line, byte by byte, so that nothing beyond it leaves the socket. False when the
/// connection has closed, the receive time-out has passed, or the line is too long.
[[nodiscard]] bool ReadLine(platform::SocketHandle socket, std::string& line);

/// Reads one answer. Gives its status code, whatever it is, or `noResponse`. On failure the rest of
/// the answer stays unread: the reader never tries to get back in step. Blocks for at most the
/// socket's receive time-out per byte of the head and for the body, which must be there at once.
[[nodiscard]] std::int32_t ReadResponse(platform::SocketHandle socket, CRtspHeaders& headers,
                                        std::string& body);

/// True when "CSeq" is there and its number is the expected one.
[[nodiscard]] bool CheckCSeq(const CRtspHeaders& headers, std::uint32_t expected);

/// True when "Session" is there and its whole value is the id: a parameter behind it fails.
[[nodiscard]] bool CheckSession(const CRtspHeaders& headers, const std::string& sessionId);

}  // namespace qmx::cam
