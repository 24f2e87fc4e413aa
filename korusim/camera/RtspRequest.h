/// Reads RTSP 1.0 requests (RFC 2326) out of the bytes of a connection, however they are cut.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korusim {

struct SRtspRequest {
    std::string method;
    std::string url;
    std::string version;
    std::vector<std::pair<std::string, std::string>> headers;

    /// The value of a header, its name compared without case; null when there is none.
    [[nodiscard]] const std::string* Find(std::string_view name) const;
};

enum class ERtspRead {
    NeedMore,
    Request,
    Malformed,  ///< a request is over whose text makes no sense; the next one may be good
    Broken,     ///< the end of the request can't be told: the connection can't go on
};

class CRtspRequestReader {
   public:
    void Feed(std::string_view bytes) { buffered += bytes; }
    /// The next request. A malformed one is filled in as far as it could be read.
    [[nodiscard]] ERtspRead Next(SRtspRequest& request);

   private:
    void SkipBody();

    std::string buffered;
    std::size_t bodyLeft = 0;  // bytes of the last request's body still to be passed over
};

/// Text comparison without ASCII case.
[[nodiscard]] bool SameWord(std::string_view left, std::string_view right);
/// A text without the blanks and tabs around it.
[[nodiscard]] std::string_view Trim(std::string_view text);

}  // namespace korusim
