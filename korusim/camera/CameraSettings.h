/// What one virtual camera is like, and its text form on the command line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korusim {

/// Frame rates beyond this, in frames per second, are typing errors, on the command line as in the
/// node tree.
inline constexpr double maxFrameRate = 1000;
inline constexpr double defaultFrameRate = 30;

enum class EStreams { Raw, Mjls, MjlsAndMjpg, Mjpg };

/// States of the node tree that a client's probe has to tell apart.
enum class ETree {
    On,
    Off,          ///< nothing listens
    Gcam,         ///< another kind of camera: a ".gcam" node beside everything else
    NoRtp,        ///< no ".rtp" node
    NoSwitch,     ///< no node that says whether RTSP streaming is enabled
    SwitchedOff,  ///< that node is there and false
};

/// Departures from good behaviour that a client has to live with. Values are bits.
enum class EQuirk : std::uint32_t {
    Silent = 1U << 0,                ///< RTSP requests are read and never answered
    SessionTimeoutInPlay = 1U << 1,  ///< the PLAY answer has a parameter behind the session id
    NoServerPort = 1U << 2,          ///< the SETUP answer doesn't tell the camera's ports
    SplitBody = 1U << 3,             ///< an answer's body travels in two pieces
    LowerCaseHeaders = 1U << 4,
    LateAnswers = 1U << 5,
    RefusePlay = 1U << 6,
    RefusePause = 1U << 7,
    RefuseTeardown = 1U << 8,
};

struct SPictureSize {
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    bool operator==(const SPictureSize&) const = default;
};

enum class ESubsampling {
    Chroma422,  ///< colour at half the horizontal resolution
    Chroma420,  ///< and at half the vertical one
};

/// How a camera codes its JPEG stream (RFC 2435).
struct SJpegSettings {
    std::uint8_t quality = 80;          ///< the Q of the RTP header
    std::uint16_t restartInterval = 0;  ///< in minimum coded units, 0: no restart markers
    ESubsampling subsampling = ESubsampling::Chroma422;

    /// Whether each frame brings its quantisation tables along; else they follow from Q.
    [[nodiscard]] bool tablesInBand() const noexcept { return quality >= 128; }
};

struct SCameraSettings {
    std::string address;  ///< dotted IPv4
    std::string name;
    EStreams streams = EStreams::Raw;
    std::vector<SPictureSize> sizes;  ///< at least one
    double rate = defaultFrameRate;   ///< frames per second
    std::uint32_t mtu = 1472;         ///< largest datagram in bytes, without IP and UDP headers
    double senderReportSeconds = 5;   ///< time between sender reports, 0: none
    double rtcpTimeoutSeconds = 0;    ///< silence of a receiver that ends its stream, 0: none does
    SJpegSettings jpeg;
    double loss = 0;  ///< probabilities per RTP packet
    double duplicate = 0;
    double reorder = 0;
    std::uint64_t seed = 1;
    ETree tree = ETree::On;
    std::uint32_t quirks = 0;

    [[nodiscard]] bool Has(EQuirk quirk) const noexcept {
        return (quirks & static_cast<std::uint32_t>(quirk)) != 0;
    }
};

struct SParsedCamera {
    SCameraSettings settings;
    std::string error;  ///< empty when the settings are good; else names camera and setting
};

/// Reads "ADDRESS,key=value,...".
[[nodiscard]] SParsedCamera ParseCamera(std::string_view argument);

/// One paragraph per setting, for a help page.
[[nodiscard]] std::string SettingsHelp();

}  // namespace korusim
