/// Parses RTSP 1.0 requests (RFC 2326) from the bytes of a connection, however they are split.
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

    /// Returns the value of a header, or null. Names are compared without case.
    [[nodiscard]] const std::string* Find(std::string_view name) const;
};

enum class ERtspRead {
    NeedMore,
    Request,
    Malformed,  ///< a complete request that is not valid; the next one may be
    Broken,     ///< the end of the request cannot be determined; close the connection
};

class CRtspRequestReader {
   public:
    void Feed(std::string_view bytes) { buffered += bytes; }
    /// Returns the next request. A malformed one is filled in as far as it could be parsed.
    [[nodiscard]] ERtspRead Next(SRtspRequest& request);

   private:
    void SkipBody();

    std::string buffered;
    std::size_t bodyLeft = 0;  // bytes of the last request's body that are still to be skipped
};

/// Compares texts without ASCII case.
[[nodiscard]] bool SameWord(std::string_view left, std::string_view right);
/// Returns a text without the blanks and tabs around it.
[[nodiscard]] std::string_view Trim(std::string_view text);

}  // namespace korusim
