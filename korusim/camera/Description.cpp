#include "Description.h"

namespace korusim {
namespace {

/// JPEG has a static payload type (RFC 3551), the same for all sizes.
constexpr std::uint8_t jpegPayload = 26;

constexpr std::string_view rawPath = "/";
constexpr std::string_view mjlsPath = "/mjls";
constexpr std::string_view mjpgPath = "/mjpg";
constexpr std::string_view rawSetupPrefix = "/sid=";
constexpr std::string_view firstStreamSuffix = "/stream=0";

std::string_view EncodingName(EEncoding encoding) {
    switch (encoding) {
        case EEncoding::Raw:
            return "ZRAW";
        case EEncoding::Mjls:
            return "MJLS";
        case EEncoding::Jpeg:
            break;
    }
    return "JPEG";
}

/// Returns the encoding served at a DESCRIBE path.
std::optional<EEncoding> EncodingAt(EStreams streams, std::string_view path) {
    const bool mjls = streams == EStreams::Mjls || streams == EStreams::MjlsAndMjpg;
    const bool mjpg = streams == EStreams::Mjpg || streams == EStreams::MjlsAndMjpg;
    if (path == rawPath && streams == EStreams::Raw) return EEncoding::Raw;
    if (path == mjlsPath && mjls) return EEncoding::Mjls;
    if (path == mjpgPath && mjpg) return EEncoding::Jpeg;
    return std::nullopt;
}

/// Returns the path of SETUP for a format. A compressed stream has one for all sizes.
std::string SetupPath(const SVideoFormat& format) {
    switch (format.encoding) {
        case EEncoding::Raw:
            return std::string(rawSetupPrefix) + std::to_string(format.payloadType);
        case EEncoding::Mjls:
            return std::string(mjlsPath) + std::string(firstStreamSuffix);
        case EEncoding::Jpeg:
            break;
    }
    return std::string(mjpgPath) + std::string(firstStreamSuffix);
}

/// Returns the head of a media section. Its control URL, relative to the base of the description,
/// is the last part of the path that sets up the first format: the section has only one.
std::string MediaLines(const std::vector<SVideoFormat>& formats) {
    std::string lines = "m=video 0 RTP/AVP";
    for (const SVideoFormat& format : formats) lines += " " + std::to_string(format.payloadType);
    const std::string path = SetupPath(formats.front());
    return lines + "\r\na=control:" + path.substr(path.rfind('/') + 1) + "\r\n";
}

std::string FormatLines(const SVideoFormat& format) {
    const std::string payload = std::to_string(format.payloadType);
    return "a=rtpmap:" + payload + " " + std::string(EncodingName(format.encoding)) +
           "/90000\r\na=framesize:" + payload + " " + std::to_string(format.size.width) + "-" +
           std::to_string(format.size.height) + "\r\n";
}

}  // namespace

std::vector<SVideoFormat> FormatsAt(const SCameraSettings& settings, std::string_view path) {
    std::vector<SVideoFormat> formats;
    const auto encoding = EncodingAt(settings.streams, path);
    if (!encoding) return formats;
    std::uint8_t payload = *encoding == EEncoding::Jpeg ? jpegPayload : settings.firstPayloadType;
    for (const SPictureSize& size : settings.sizes) {
        formats.push_back({*encoding, payload, size});
        if (*encoding != EEncoding::Jpeg) ++payload;
    }
    return formats;
}

std::optional<SVideoFormat> FormatToSetUp(const SCameraSettings& settings, std::string_view path) {
    for (const std::string_view stream : {rawPath, mjlsPath, mjpgPath}) {
        // The first one that matches: a compressed stream uses the first size.
        for (const SVideoFormat& format : FormatsAt(settings, stream)) {
            if (path == SetupPath(format)) return format;
        }
    }
    return std::nullopt;
}

std::string DescribeFormats(const SCameraSettings& settings,
                            const std::vector<SVideoFormat>& formats) {
    std::string text = "v=0\r\no=- " + std::to_string(settings.seed) + " 1 IN IP4 " +
                       settings.address + "\r\ns=" + settings.name +
                       "\r\nc=IN IP4 0.0.0.0\r\nt=0 0\r\na=control:*\r\n";
    if (formats.empty()) return text;
    // Sizes with the same payload type cannot share a media section: the attributes of all of them
    // would apply to the first.
    const bool sharedPayload = formats.front().payloadType == formats.back().payloadType;
    if (!sharedPayload) text += MediaLines(formats);
    for (const SVideoFormat& format : formats) {
        if (sharedPayload) text += MediaLines({format});
        text += FormatLines(format);
    }
    return text;
}

}  // namespace korusim
