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

/// A text cut at the first place where a character stands.
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

/// The text of a framesize, which must hold a hyphen.
bool ReadFrameSize(std::string_view text, SSize& size) {
    const SHalves halves = CutAt(text, '-');
    if (!halves.found) return false;
    // The width is read from the whole text: its number ends at the hyphen, unless it begins there.
    size = {ParseUnsigned(text), ParseUnsigned(halves.back)};
    return true;
}

/// Takes the lines of a description one by one. False ends the reading.
class CDescriptionReader {
   public:
    explicit CDescriptionReader(SRtspStream& description) : stream(description) {}

    bool TakeLine(std::string_view line);

   private:
    bool TakeMedia(std::string_view value);
    bool TakeAttribute(std::string_view value);
    bool TakeFormatAttribute(SRtspMedia& media, std::string_view name, std::string_view text);
    bool TakeSharedFrameSize(SRtspMedia& media, std::string_view text);
    static void TakeParameters(SRtspFormat& format);
    bool GiveUp() {
        stream.Reset();
        return false;
    }
    SRtspMedia* CurrentMedia() { return stream.media.empty() ? nullptr : &stream.media.back(); }

    SRtspStream& stream;
};

bool CDescriptionReader::TakeLine(std::string_view line) {
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
            return TakeAttribute(value);
        case 'm':
            return TakeMedia(value);
        default:
            return true;
    }
}

bool CDescriptionReader::TakeMedia(std::string_view value) {
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

bool CDescriptionReader::TakeAttribute(std::string_view value) {
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
    if (text.find(' ') != std::string_view::npos) return TakeFormatAttribute(*current, name, text);
    return name == "framesize" ? TakeSharedFrameSize(*current, text) : GiveUp();
}

/// "payload rest": speaks of the first format with that payload.
bool CDescriptionReader::TakeFormatAttribute(SRtspMedia& media, std::string_view name,
                                             std::string_view text) {
    const SHalves words = CutAt(text, ' ');
    const std::size_t restAt = words.back.find_first_not_of(' ');
    if (restAt == std::string_view::npos) return GiveUp();
    const std::string_view rest = words.back.substr(restAt);

    const auto speaksOf = [&](const SRtspFormat& each) { return each.payload == words.front; };
    const auto format = std::find_if(media.formats.begin(), media.formats.end(), speaksOf);
    if (format == media.formats.end()) return true;
    if (name == "rtpmap") {
        format->rtpmap = rest;
    } else if (name == "fmtp") {
        format->fmtp = rest;
        TakeParameters(*format);
    } else {
        SSize size{};
        if (!ReadFrameSize(rest, size)) return GiveUp();
        format->width = size.width;
        format->height = size.height;
    }
    return true;
}

/// Names are compared whole, so that a blank behind a semicolon hides a parameter.
void CDescriptionReader::TakeParameters(SRtspFormat& format) {
    for (const std::string& piece : Split(format.fmtp, ";")) {
        const auto [name, text, found] = CutAt(piece, '=');
        if (!found) continue;
        if (name == "width") format.width = ParseUnsigned(text);
        if (name == "height") format.height = ParseUnsigned(text);
    }
}

/// A framesize without a payload speaks of all formats of its media.
bool CDescriptionReader::TakeSharedFrameSize(SRtspMedia& media, std::string_view text) {
    media.attributes["framesize"] = text;
    SSize size{};
    if (!ReadFrameSize(text, size)) return GiveUp();
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
    CDescriptionReader reader(stream);
    for (const std::string& line : lines) {
        if (!reader.TakeLine(line)) break;
    }
    return stream;
}

}  // namespace qmx::cam
