/// RTSP 1.0 messages (RFC 2326) from the bytes of a captured connection, requests and responses.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korusim {

struct SRtspMessage {
    std::string startLine;
    std::vector<std::pair<std::string, std::string>> headers;  ///< in the order of the message
    std::string body;

    /// Returns the value of a header, or null. Names are compared without case.
    [[nodiscard]] const std::string* Find(std::string_view name) const;
    [[nodiscard]] bool IsResponse() const { return startLine.starts_with("RTSP/"); }
};

/// Finds the messages in the bytes of one direction. Bytes that are not part of a message are
/// skipped: interleaved binary data (RFC 2326, 10.12), and the rest of a message whose beginning
/// was not captured.
class CRtspMessageReader {
   public:
    /// `afterGap`: bytes are missing before these.
    void Feed(std::string_view bytes, bool afterGap);
    [[nodiscard]] std::optional<SRtspMessage> Next();

   private:
    [[nodiscard]] bool SkipToMessage();

    std::string buffered;
    std::size_t skip = 0;  // bytes of interleaved data or of a long body that are still to come
};

/// A request and its response.
struct SRtspExchange {
    std::string method;
    std::string url;
    SRtspMessage request;
    SRtspMessage response;
    int status = 0;
};

/// Joins the messages of one connection to exchanges by their sequence numbers.
class CRtspConversation {
   public:
    /// Returns the exchange that a response completes.
    [[nodiscard]] std::optional<SRtspExchange> Add(SRtspMessage message);

   private:
    std::map<std::string, SRtspMessage> pending;  // requests by CSeq
};

/// A part of a URL.
struct SUrlParts {
    std::string_view authority;  ///< host and port; empty if it is not an RTSP URL
    std::string_view path;       ///< with the query; "/" if there is none
};
[[nodiscard]] SUrlParts SplitUrl(std::string_view url);

/// Returns the value of a parameter of a header such as Transport, or nothing.
[[nodiscard]] std::optional<std::string_view> FindParameter(std::string_view header,
                                                            std::string_view name);

}  // namespace korusim
