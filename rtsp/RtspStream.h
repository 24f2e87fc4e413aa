/// What a camera says of one stream: the session description (SDP, RFC 4566) of one DESCRIBE answer
/// as value records, and the parser that makes them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qmx::cam {

/// Attribute name to its text.
using CRtspAttributes = std::map<std::string, std::string>;

/// One RTP payload format of a media.
struct SRtspFormat {
    std::string payload;       ///< the word of the m line, never a number
    std::string rtpmap;        ///< such as "ZRAW/90000"
    std::uint32_t width = 0;   ///< pixels; 0 when no size was given
    std::uint32_t height = 0;  ///< pixels
    std::string fmtp;
};

/// One media section.
struct SRtspMedia {
    std::string name;  ///< the first three words of the m line
    std::string information;
    std::string connection;
    std::string encryptionKey;
    CRtspAttributes attributes;  ///< but for rtpmap, fmtp and a framesize with a payload
    std::vector<SRtspFormat> formats;
};

/// One description.
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
    CRtspAttributes attributes;  ///< those before the first media
    std::vector<SRtspMedia> media;

    /// True when there are a version and a media: how callers learn that a DESCRIBE worked.
    [[nodiscard]] bool IsValid() const noexcept { return !version.empty() && !media.empty(); }
    /// Makes the record invalid; what else it has read stays.
    void Reset() noexcept;
};

/// Reads the body of a DESCRIBE answer. Gives an invalid record for what is no description; a line
/// that is no "x=" line ends the reading and lets stand what came before it.
[[nodiscard]] SRtspStream ParseDescription(std::string_view body);

}  // namespace qmx::cam
