/// The settings of one virtual camera, and their text form on the command line.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace korusim {

/// The highest frame rate, in frames per second, that the command line and the node tree accept. A
/// higher one is a typing error.
inline constexpr double maxFrameRate = 1000;
inline constexpr double defaultFrameRate = 30;

enum class EStreams { Raw, Mjls, MjlsAndMjpg, Mjpg };

/// States of the node tree that a client's probe has to distinguish.
enum class ETree {
    On,
    Off,          ///< nothing listens
    Gcam,         ///< another kind of camera: a ".gcam" node in addition to the others
    NoRtp,        ///< no ".rtp" node
    NoSwitch,     ///< no node for whether RTSP streaming is enabled
    SwitchedOff,  ///< that node exists and is false
};

/// Faulty behaviour that a client has to cope with, or to explain. The values are bits.
enum class EQuirk : std::uint32_t {
    Silent = 1U << 0,                ///< RTSP requests are read but get no response
    SessionTimeoutInPlay = 1U << 1,  ///< the PLAY response has a parameter after the session id
    NoServerPort = 1U << 2,          ///< the SETUP response does not contain the camera's ports
    SplitBody = 1U << 3,             ///< the body of a response is sent in two pieces
    LowerCaseHeaders = 1U << 4,
    LateAnswers = 1U << 5,
    RefusePlay = 1U << 6,
    RefusePause = 1U << 7,
    RefuseTeardown = 1U << 8,
    HalfRate = 1U << 9,     ///< sends at half the frame rate that its node tree promises
    SkipFrames = 1U << 10,  ///< sends two of three frames
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

/// How a camera encodes its JPEG stream (RFC 2435).
struct SJpegSettings {
    std::uint8_t quality = 80;          ///< the Q of the RTP header
    std::uint16_t restartInterval = 0;  ///< in minimum coded units; 0 means no restart markers
    ESubsampling subsampling = ESubsampling::Chroma422;

    /// Returns true if each frame contains its quantisation tables. Otherwise Q determines them.
    [[nodiscard]] bool tablesInBand() const noexcept { return quality >= 128; }
};

struct SCameraSettings {
    std::string address;  ///< dotted IPv4
    std::string name;
    std::filesystem::path capture;    ///< path of the capture that is replayed; empty: none
    std::uint32_t captureStream = 0;  ///< number of its stream, counted from 1; 0: the only one
    bool captureLoop = false;
    EStreams streams = EStreams::Raw;
    std::vector<SPictureSize> sizes;     ///< at least one, unless the pictures determine it
    std::filesystem::path images;        ///< path of the user's pictures; empty: drawn ones
    double rate = defaultFrameRate;      ///< frames per second
    std::uint8_t firstPayloadType = 96;  ///< of the first size, unless the stream is JPEG
    std::uint32_t mtu = 1472;            ///< largest datagram in bytes, without IP and UDP headers
    double senderReportSeconds = 5;      ///< time between sender reports; 0 means none
    double rtcpTimeoutSeconds =
        0;  ///< silence of the receiver that ends its stream; 0 means no limit
    int sessionTimeoutSeconds = 0;  ///< without a request or RTCP; 0 means no limit
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
    std::string error;  ///< empty if the settings are valid; otherwise names camera and setting
};

/// Parses "ADDRESS,key=value,...".
[[nodiscard]] SParsedCamera ParseCamera(std::string_view argument);

/// Returns a seed that differs between cameras with the same `seed`.
[[nodiscard]] std::uint64_t CameraSeed(const SCameraSettings& settings);

/// Makes the size of the user's pictures the size of the camera. Throws `std::runtime_error` if
/// that contradicts other settings.
void UseImageSize(SCameraSettings& settings, SPictureSize size);

/// Returns one paragraph per setting, for a help page.
[[nodiscard]] std::string SettingsHelp();

}  // namespace korusim
