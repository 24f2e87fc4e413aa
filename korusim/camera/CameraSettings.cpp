#include "CameraSettings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <set>
#include <stdexcept>
#include <system_error>

#include "Path.h"
#include "PictureLimits.h"

namespace korusim {
namespace {

constexpr SPictureSize defaultSize{640, 512};
/// JPEG over RTP encodes width and height in one byte each, in units of 8 pixels.
constexpr std::uint32_t jpegSideUnit = 8;
constexpr std::uint32_t maxJpegSide = 2040;
/// Dynamic RTP payload types, one per size: 96 to 127.
constexpr std::size_t maxSizes = 32;
/// The lower limit leaves room for the headers; the upper one is that of UDP over IPv4.
constexpr std::uint32_t minDatagram = 64;
constexpr std::uint32_t maxDatagram = 65507;
constexpr std::size_t maxNameBytes = 63;   // a DNS label
constexpr double maxReportSeconds = 3600;  // also the longest silence

template <class T>
std::optional<T> ParseNumber(std::string_view text) {
    T value{};
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, value);
    if (error != std::errc() || end != last) return std::nullopt;
    return value;
}

/// Parses a number within limits. The comparison is written so that it rejects "nan" too.
template <class T>
bool ParseWithin(std::string_view text, T least, T most, T& value) {
    const auto number = ParseNumber<T>(text);
    if (!number || !(*number >= least && *number <= most)) return false;
    value = *number;
    return true;
}

template <class T>
struct SWord {
    std::string_view word;
    T value;
    std::string_view meaning{};  ///< for the help page
};

constexpr std::array<SWord<EStreams>, 4> streamWords{{{"raw", EStreams::Raw},
                                                      {"mjls", EStreams::Mjls},
                                                      {"mjls+mjpg", EStreams::MjlsAndMjpg},
                                                      {"mjpg", EStreams::Mjpg}}};

constexpr auto treeWords = std::to_array<SWord<ETree>>(
    {{"on", ETree::On, "an infrared camera with RTSP streaming enabled"},
     {"off", ETree::Off, "nothing listens: connections are refused"},
     {"gcam", ETree::Gcam, "a camera of another kind, with a .gcam node in addition"},
     {"no-rtp", ETree::NoRtp, "a camera without streaming: there is no .rtp node"},
     {"no-switch", ETree::NoSwitch, "the node that enables RTSP streaming does not exist"},
     {"switched-off", ETree::SwitchedOff, "that node exists, and streaming is disabled"}});

constexpr std::array<SWord<ESubsampling>, 2> subsamplingWords{
    {{"422", ESubsampling::Chroma422}, {"420", ESubsampling::Chroma420}}};

constexpr std::array<SWord<bool>, 2> switchWords{{{"off", false}, {"on", true}}};

constexpr auto quirkWords = std::to_array<SWord<EQuirk>>(
    {{"silent", EQuirk::Silent, "requests are read, but get no response"},
     {"session-timeout-in-play", EQuirk::SessionTimeoutInPlay,
      "the Session header of the response to PLAY has a parameter after the identifier"},
     {"no-server-port", EQuirk::NoServerPort,
      "the Transport header of the response to SETUP lacks the ports of the camera"},
     {"split-body", EQuirk::SplitBody,
      "the second half of a body is sent 100 ms after the first half"},
     {"lower-case-headers", EQuirk::LowerCaseHeaders, "header names are in lower case"},
     {"late-answers", EQuirk::LateAnswers, "every response is sent 6 s after its request"},
     {"refuse-play", EQuirk::RefusePlay, "the response to PLAY is 500"},
     {"refuse-pause", EQuirk::RefusePause, "the response to PAUSE is 455"},
     {"refuse-teardown", EQuirk::RefuseTeardown, "the response to TEARDOWN is 500"},
     {"half-rate", EQuirk::HalfRate, "frames are sent at half the rate of the node tree"},
     {"skip-frames", EQuirk::SkipFrames, "every third frame is not sent"}});

template <class T, std::size_t N>
std::optional<T> FindWord(const std::array<SWord<T>, N>& words, std::string_view text) {
    const auto found = std::ranges::find(words, text, &SWord<T>::word);
    if (found == words.end()) return std::nullopt;
    return found->value;
}

template <class T, std::size_t N>
bool ParseWord(const std::array<SWord<T>, N>& words, std::string_view text, T& value) {
    const auto found = FindWord(words, text);
    if (found) value = *found;
    return found.has_value();
}

template <class T, std::size_t N>
std::string ExplainWords(const std::array<SWord<T>, N>& words) {
    std::string lines;
    for (const SWord<T>& each : words) {
        lines += "        " + std::string(each.word) + ": " + std::string(each.meaning) + "\n";
    }
    return lines;
}

bool ParseName(std::string_view text, SCameraSettings& settings) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    if (text.empty() || text.size() > maxNameBytes) return false;
    if (std::ranges::any_of(text, isControl)) return false;
    settings.name = text;
    return true;
}

bool ParseSize(std::string_view text, SCameraSettings& settings) {
    const std::size_t cross = text.find('x');
    if (cross == std::string_view::npos || settings.sizes.size() == maxSizes) return false;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    if (!ParseWithin(text.substr(0, cross), minSide, maxSide, width) ||
        !ParseWithin(text.substr(cross + 1), minSide, maxSide, height)) {
        return false;
    }
    settings.sizes.push_back(
        {static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height)});
    return true;
}

bool ParseImages(std::string_view text, SCameraSettings& settings) {
    settings.images = platform::PathFromUtf8(text);
    return !text.empty();
}

bool ParseRate(std::string_view text, SCameraSettings& settings) {
    return ParseWithin(text, 0.0, maxFrameRate, settings.rate) && settings.rate > 0;
}

/// RFC 2435 does not define Q from 100 to 127.
bool ParseQuality(std::string_view text, SCameraSettings& settings) {
    std::uint8_t& quality = settings.jpeg.quality;
    return ParseWithin<std::uint8_t>(text, 1, 99, quality) ||
           ParseWithin<std::uint8_t>(text, 128, 255, quality);
}

bool ParseQuirk(std::string_view text, SCameraSettings& settings) {
    const auto quirk = FindWord(quirkWords, text);
    if (quirk) settings.quirks |= static_cast<std::uint32_t>(*quirk);
    return quirk.has_value();
}

struct SSetting {
    std::string_view key;
    std::string_view allowed;  ///< for the help page and the error message
    std::string_view meaning;
    bool repeatable;
    bool (*parse)(std::string_view text, SCameraSettings& settings);
    std::string (*explainWords)() = nullptr;  ///< returns a line of the help page for each word
};

constexpr auto settingTable = std::to_array<SSetting>({
    {"name", "1 to 63 bytes of UTF-8 without a comma",
     "name under which it is announced (default: \"korusim ADDRESS\")", false, ParseName},
    {"streams", "raw, mjls, mjls+mjpg or mjpg",
     "the streams that it offers (default: raw); mjls is lossless JPEG-LS, mjpg is JPEG", false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWord(streamWords, text, to.streams);
     }},
    {"size", "WxH, each 8 to 4096, at most 32 sizes",
     "picture size, repeatable, one format each (default: 640x512); a compressed stream uses only "
     "the first size; mjpg needs multiples of 8, at most 2040",
     true, ParseSize},
    {"images", "a folder, or a PNG or TIFF file; no comma in its path",
     "pictures to send instead of the drawn scene, again and again: the .png, .tif and .tiff files "
     "of the folder in the order of their names, or all pages of the file; 8 or 16 bits of grey, "
     "unscaled, all of one size, which becomes the size of the camera; mjpg colours the range of "
     "the first picture; number and checksum replace a part of each picture",
     false, ParseImages},
    {"capture", "a pcap or pcapng file; no comma in its path",
     "replays the camera of a packet capture: its descriptions, its responses and the RTP and RTCP "
     "packets of one stream with their sizes, order, gaps and times; packets that were lost are "
     "missing; only name, stream, loop, rtcp-timeout, session-timeout, seed, tree and quirk can be "
     "set in addition; quirks that change the headers of a response have no effect",
     false,
     [](std::string_view text, SCameraSettings& to) {
         to.capture = platform::PathFromUtf8(text);
         return !text.empty();
     }},
    {"stream", "1 to 9999",
     "the stream of the capture to replay, if it contains several; without it, korusim lists them "
     "and ends",
     false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWithin(text, 1U, 9999U, to.captureStream);
     }},
    {"loop", "on or off",
     "repeats the capture; sequence numbers and timestamps go on (default: off)", false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWord(switchWords, text, to.captureLoop);
     }},
    {"rate", "above 0, at most 1000", "frames per second, fractions allowed (default: 30)", false,
     ParseRate},
    {"mtu", "64 to 65507",
     "bytes of the largest datagram (default: 1472); a datagram holds at most 5 rows of a raw "
     "picture and exceeds this limit if one row or the JPEG headers need more",
     false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWithin(text, minDatagram, maxDatagram, to.mtu);
     }},
    {"sr", "0 to 3600", "seconds between sender reports; 0 means none (default: 5)", false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWithin(text, 0.0, maxReportSeconds, to.senderReportSeconds);
     }},
    {"rtcp-timeout", "0 to 3600",
     "seconds without a valid RTCP packet from the receiver after which a playing stream and its "
     "session end; 0 means no limit (default: 0); receivers that report only after every fourth "
     "sender report need more than four times sr",
     false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWithin(text, 0.0, maxReportSeconds, to.rtcpTimeoutSeconds);
     }},
    {"session-timeout", "0 to 3600",
     "seconds without a request on its connection and without a valid RTCP packet after which a "
     "session ends; OPTIONS and GET_PARAMETER keep it alive; 0 means no limit, and 60 is announced "
     "(default: 0)",
     false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWithin(text, 0, 3600, to.sessionTimeoutSeconds);
     }},
    {"q", "1 to 99, or 128 to 255",
     "quality of mjpg; from 128 on each frame contains its quantisation tables (default: 80)",
     false, ParseQuality},
    {"restart", "0 to 65535",
     "minimum coded units between restart markers of mjpg; 0 means no markers (default: 0)", false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWithin<std::uint16_t>(text, 0, 65535, to.jpeg.restartInterval);
     }},
    {"subsampling", "422 or 420", "resolution of the colours of mjpg (default: 422)", false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWord(subsamplingWords, text, to.jpeg.subsampling);
     }},
    {"loss", "0 to 1", "probability that an RTP packet is lost (default: 0)", false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWithin(text, 0.0, 1.0, to.loss);
     }},
    {"duplicate", "0 to 1", "probability that an RTP packet is sent twice (default: 0)", false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWithin(text, 0.0, 1.0, to.duplicate);
     }},
    {"reorder", "0 to 1", "probability that an RTP packet comes after the next one (default: 0)",
     false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWithin(text, 0.0, 1.0, to.reorder);
     }},
    {"seed", "0 to 18446744073709551615",
     "seed of all random numbers: the same seed repeats a run (default: 1)", false,
     [](std::string_view text, SCameraSettings& to) {
         return ParseWithin(text, std::uint64_t{0}, ~std::uint64_t{0}, to.seed);
     }},
    {"tree", "on, off, gcam, no-rtp, no-switch or switched-off",
     "state of the node tree (default: on):", false,
     [](std::string_view text, SCameraSettings& to) { return ParseWord(treeWords, text, to.tree); },
     [] { return ExplainWords(treeWords); }},
    {"quirk",
     "silent, session-timeout-in-play, no-server-port, split-body, lower-case-headers, "
     "late-answers, refuse-play, refuse-pause, refuse-teardown, half-rate or skip-frames",
     "faulty behaviour of the camera, repeatable (default: none):", true, ParseQuirk,
     [] { return ExplainWords(quirkWords); }},
});

bool IsDottedAddress(std::string_view text) {
    for (int part = 0; part < 4; ++part) {
        const std::size_t end = part < 3 ? text.find('.') : text.size();
        std::uint32_t octet = 0;
        if (end == std::string_view::npos || end > 3) return false;
        if (!ParseWithin(text.substr(0, end), 0U, 255U, octet)) return false;
        text.remove_prefix(part < 3 ? end + 1 : end);
    }
    return true;
}

/// Applies one "key=value". Returns what is wrong with it, or an empty text.
std::string ApplySetting(std::string_view text, std::set<std::string_view>& given,
                         SCameraSettings& settings) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) return "a setting has the form key=value";
    const std::string_view key = text.substr(0, equals);
    const auto setting = std::ranges::find(settingTable, key, &SSetting::key);
    if (setting == settingTable.end()) return "there is no such setting";
    if (!given.insert(key).second && !setting->repeatable) return "given twice";
    if (setting->parse(text.substr(equals + 1), settings)) return {};
    return "must be " + std::string(setting->allowed);
}

bool IsJpegSize(SPictureSize size) {
    const auto good = [](std::uint32_t side) {
        return side % jpegSideUnit == 0 && side <= maxJpegSide;
    };
    return good(size.width) && good(size.height);
}

/// Checks that no setting excludes another one. Returns what is wrong, or an empty text.
std::string FindExclusion(const std::set<std::string_view>& given) {
    constexpr std::array<std::string_view, 9> withCapture{
        "capture",         "stream", "loop", "name", "rtcp-timeout",
        "session-timeout", "seed",   "tree", "quirk"};
    const bool capture = given.contains("capture");
    for (const std::string_view key : given) {
        if (capture && std::ranges::find(withCapture, key) == withCapture.end()) {
            return std::string(key) + "= has no effect on a capture; leave it out";
        }
        if (!capture && (key == "stream" || key == "loop")) {
            return std::string(key) + "= needs capture=";
        }
    }
    return {};
}

/// Checks the settings against each other. Returns what is wrong, or an empty text.
std::string FindContradiction(const SCameraSettings& settings) {
    const bool jpeg =
        settings.streams == EStreams::Mjpg || settings.streams == EStreams::MjlsAndMjpg;
    const auto odd = std::ranges::find_if_not(settings.sizes, IsJpegSize);
    if (!jpeg || odd == settings.sizes.end()) return {};
    return "size=" + SizeText(*odd) +
           ": an mjpg stream needs a width and a height in multiples of 8, at most 2040";
}

}  // namespace

SParsedCamera ParseCamera(std::string_view argument) {
    SParsedCamera parsed;
    SCameraSettings& settings = parsed.settings;
    const std::size_t addressEnd = std::min(argument.find(','), argument.size());
    settings.address = argument.substr(0, addressEnd);
    if (!IsDottedAddress(settings.address)) {
        parsed.error = "\"" + settings.address + "\" is not an IPv4 address";
        return parsed;
    }
    std::set<std::string_view> given;
    for (std::size_t at = addressEnd; at < argument.size();) {
        const std::size_t end = std::min(argument.find(',', at + 1), argument.size());
        const std::string_view text = argument.substr(at + 1, end - at - 1);
        const std::string wrong = ApplySetting(text, given, settings);
        if (!wrong.empty()) {
            parsed.error = "camera " + settings.address + ": " + std::string(text) + ": " + wrong;
            return parsed;
        }
        at = end;
    }
    if (settings.name.empty()) settings.name = "korusim " + settings.address;
    if (settings.sizes.empty() && settings.images.empty()) settings.sizes.push_back(defaultSize);
    std::string wrong = FindExclusion(given);
    if (wrong.empty()) wrong = FindContradiction(settings);
    if (!wrong.empty()) parsed.error = "camera " + settings.address + ": " + wrong;
    return parsed;
}

std::uint64_t CameraSeed(const SCameraSettings& settings) {
    std::uint64_t seed = settings.seed;
    for (const char c : settings.address) seed = seed * 31 + static_cast<unsigned char>(c);
    return seed;
}

void UseImageSize(SCameraSettings& settings, SPictureSize size) {
    const std::vector<SPictureSize> only{size};
    if (!settings.sizes.empty() && settings.sizes != only) {
        throw std::runtime_error("size= contradicts images=" + platform::Utf8Text(settings.images) +
                                 ", whose pictures have " + SizeText(size) +
                                 " pixels; leave size= out");
    }
    settings.sizes = only;
    const std::string wrong = FindContradiction(settings);
    if (!wrong.empty()) throw std::runtime_error(wrong);
}

std::string SettingsHelp() {
    std::string help =
        "CAMERA is an IPv4 address followed by comma-separated settings, such as\n"
        "  127.0.0.11,name=Roof,size=640x512,rate=30\n\nSettings:\n";
    for (const SSetting& setting : settingTable) {
        help += "  " + std::string(setting.key) + "=    " + std::string(setting.allowed) +
                "\n      " + std::string(setting.meaning) + "\n";
        if (setting.explainWords != nullptr) help += setting.explainWords();
    }
    return help;
}

}  // namespace korusim
