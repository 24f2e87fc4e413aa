/// The session description (SDP, RFC 4566) in a response to DESCRIBE, as value records, and its
/// parser.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qmx::cam {

/// Maps attribute names to their texts.
using SdpAttributes = std::map<std::string, std::string>;

/// One RTP payload format of a media section.
struct SRtspFormat {
    std::string payload;       ///< the word of the m line, as text
    std::string rtpmap;        ///< such as "ZRAW/90000"
    std::uint32_t width = 0;   ///< pixels; 0 when the description states no size
    std::uint32_t height = 0;  ///< pixels
    std::string fmtp;
};

/// One media section.
struct SRtspMedia {
    std::string name;  ///< the first three words of the m line
    std::string information;
    std::string connection;
    std::string encryptionKey;
    SdpAttributes attributes;  ///< without rtpmap, fmtp and framesize of a payload
    std::vector<SRtspFormat> formats;
};

/// One complete description. The device uses only its version and its media sections; the other
/// fields are kept so that the record contains everything that the camera has sent.
struct SRtspStream {
    std::string version;
    std::string origin;
    std::string sessionName;
    std::string information;
    std::string uri;
    std::string email;
    std::string phone;
    std::string connection;
    std::string timeZones;
    std::string encryptionKey;
    SdpAttributes attributes;  ///< those before the first media section
    std::vector<SRtspMedia> media;

    /// Returns true when there are a version and a media section, which means that DESCRIBE has
    /// succeeded.
    [[nodiscard]] bool IsValid() const noexcept { return !version.empty() && !media.empty(); }
    /// Makes the record invalid. The other fields keep their values.
    void Reset() noexcept;
};

/// Parses the body of a response to DESCRIBE. Returns an invalid record when it is not a
/// description. A line that does not have the form "x=..." ends the parsing; the lines before it
/// count.
[[nodiscard]] SRtspStream ParseDescription(std::string_view body);

}  // namespace qmx::cam
