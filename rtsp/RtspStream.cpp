#include "RtspStream.h"

#include <algorithm>

#include "RtspText.h"

namespace qmx::cam {
namespace {

constexpr std::string_view firstLine = "v=0";
/// "x=" and at least one character.
constexpr std::size_t lineShortest = 3;
/// Media, port, transport and one format.
constexpr std::size_t mediaWordsFewest = 4;
constexpr std::string_view transportRtp = "RTP/AVP";

/// A text, split at the first occurrence of a character.
struct SHalves {
    std::string_view front;
    std::string_view back;
    bool found;
};

SHalves CutAt(std::string_view text, char delimiter) {
    const std::size_t at = text.find(delimiter);
    if (at == std::string_view::npos) return {text, {}, false};
    return {text.substr(0, at), text.substr(at + 1), true};
}

struct SSize {
    std::uint32_t width;
    std::uint32_t height;
};

/// Parses the text of a framesize, which must contain a hyphen.
bool ParseFrameSize(std::string_view text, SSize& size) {
    const SHalves halves = CutAt(text, '-');
    if (!halves.found) return false;
    // The width is parsed from the whole text: its number ends at the hyphen, unless the hyphen
    // comes first and is its sign.
    size = {ParseUnsigned(text), ParseUnsigned(halves.back)};
    return true;
}

/// Parses the lines of a description one by one. False ends the parsing.
class CDescriptionParser {
   public:
    explicit CDescriptionParser(SRtspStream& description) : stream(description) {}

    bool ParseLine(std::string_view line);

   private:
    bool ParseMedia(std::string_view value);
    bool ParseAttribute(std::string_view value);
    bool ParseFormatAttribute(SRtspMedia& media, std::string_view name, std::string_view text);
    bool ParseSharedFrameSize(SRtspMedia& media, std::string_view text);
    static void ParseParameters(SRtspFormat& format);
    bool GiveUp() {
        stream.Reset();
        return false;
    }
    SRtspMedia* CurrentMedia() { return stream.media.empty() ? nullptr : &stream.media.back(); }

    SRtspStream& stream;
};

bool CDescriptionParser::ParseLine(std::string_view line) {
    if (line.size() < lineShortest || line[1] != '=') return false;
    const std::string_view value = line.substr(2);
    SRtspMedia* const current = CurrentMedia();
    switch (line[0]) {
        case 'v':
            stream.version = value;
            return true;
        case 'o':
            stream.origin = value;
            return true;
        case 's':
            stream.sessionName = value;
            return true;
        case 'u':
            stream.uri = value;
            return true;
        case 'e':
            stream.email = value;
            return true;
        case 'p':
            stream.phone = value;
            return true;
        case 'z':
            stream.timeZones = value;
            return true;
        case 'i':
            (current ? current->information : stream.information) = value;
            return true;
        case 'c':
            (current ? current->connection : stream.connection) = value;
            return true;
        case 'k':
            (current ? current->encryptionKey : stream.encryptionKey) = value;
            return true;
        case 'a':
            return ParseAttribute(value);
        case 'm':
            return ParseMedia(value);
        default:
            return true;
    }
}

bool CDescriptionParser::ParseMedia(std::string_view value) {
    const std::vector<std::string> words = Split(value, " ");
    if (words.size() < mediaWordsFewest || words[2] != transportRtp) return GiveUp();
    SRtspMedia media;
    media.name = words[0] + ' ' + words[1] + ' ' + words[2];
    for (std::size_t i = mediaWordsFewest - 1; i < words.size(); ++i) {
        media.formats.emplace_back().payload = words[i];
    }
    stream.media.push_back(std::move(media));
    return true;
}

bool CDescriptionParser::ParseAttribute(std::string_view value) {
    const auto [name, text, hasText] = CutAt(value, ':');
    SRtspMedia* const current = CurrentMedia();
    if (current == nullptr) {
        stream.attributes[std::string(name)] = text;
        return true;
    }
    if (name != "rtpmap" && name != "fmtp" && name != "framesize") {
        current->attributes[std::string(name)] = text;
        return true;
    }
    if (text.find(' ') != std::string_view::npos) return ParseFormatAttribute(*current, name, text);
    return name == "framesize" ? ParseSharedFrameSize(*current, text) : GiveUp();
}

/// The text is "payload rest", and applies to the first format with that payload.
bool CDescriptionParser::ParseFormatAttribute(SRtspMedia& media, std::string_view name,
                                              std::string_view text) {
    const SHalves words = CutAt(text, ' ');
    const std::size_t restAt = words.back.find_first_not_of(' ');
    if (restAt == std::string_view::npos) return GiveUp();
    const std::string_view rest = words.back.substr(restAt);

    const auto hasPayload = [&](const SRtspFormat& each) { return each.payload == words.front; };
    const auto format = std::find_if(media.formats.begin(), media.formats.end(), hasPayload);
    if (format == media.formats.end()) return true;
    if (name == "rtpmap") {
        format->rtpmap = rest;
    } else if (name == "fmtp") {
        format->fmtp = rest;
        ParseParameters(*format);
    } else {
        SSize size{};
        if (!ParseFrameSize(rest, size)) return GiveUp();
        format->width = size.width;
        format->height = size.height;
    }
    return true;
}

/// Names are compared whole, so that a blank after a semicolon hides the parameter.
void CDescriptionParser::ParseParameters(SRtspFormat& format) {
    for (const std::string& piece : Split(format.fmtp, ";")) {
        const auto [name, text, found] = CutAt(piece, '=');
        if (!found) continue;
        if (name == "width") format.width = ParseUnsigned(text);
        if (name == "height") format.height = ParseUnsigned(text);
    }
}

/// A framesize without a payload applies to all formats of its media section.
bool CDescriptionParser::ParseSharedFrameSize(SRtspMedia& media, std::string_view text) {
    media.attributes["framesize"] = text;
    SSize size{};
    if (!ParseFrameSize(text, size)) return GiveUp();
    for (SRtspFormat& format : media.formats) {
        format.width = size.width;
        format.height = size.height;
    }
    return true;
}

}  // namespace

void SRtspStream::Reset() noexcept {
    version.clear();
    media.clear();
}

SRtspStream ParseDescription(std::string_view body) {
    SRtspStream stream;
    const std::vector<std::string> lines = Split(body, "\r\n");
    if (lines.empty() || lines.front() != firstLine) return stream;
    CDescriptionParser reader(stream);
    for (const std::string& line : lines) {
        if (!reader.ParseLine(line)) break;
    }
    return stream;
}

}  // namespace qmx::cam
