#include "ModelResponses.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "Description.h"

namespace korusim {
namespace {

constexpr std::string_view serverName = "korusim/0.1";
constexpr std::string_view descriptionType = "application/sdp";

/// Parses "?frate=N" after the path of a compressed stream; without a query there is no rate.
/// Returns false for any other query and for a rate that is not a whole number of frames per
/// second.
bool ParseRateQuery(std::string_view path, std::optional<double>& rate) {
    constexpr std::string_view key = "?frate=";
    const std::string_view query = path.substr(WithoutQuery(path).size());
    if (query.empty()) return true;
    if (!query.starts_with(key)) return false;
    std::uint32_t number = 0;
    const char* const last = query.data() + query.size();
    const auto [end, error] = std::from_chars(query.data() + key.size(), last, number);
    if (error != std::errc() || end != last) return false;
    rate = number;
    return number > 0 && number <= maxFrameRate;
}

}  // namespace

SRtspReply CModelResponses::Describe(const SRtspRequest& request, std::string_view path) const {
    const std::string* const accept = request.Find("Accept");
    if (accept != nullptr && accept->find(descriptionType) == std::string::npos &&
        accept->find("*/*") == std::string::npos) {
        return {406, {}, {}};
    }
    const auto formats = FormatsAt(settings, path);
    if (formats.empty()) return {404, {}, {}};
    // The base of relative control URLs is a folder.
    const std::string base = request.url + (request.url.ends_with('/') ? "" : "/");
    return {200,
            {{"Content-Base", base}, {"Content-Type", std::string(descriptionType)}},
            DescribeFormats(settings, formats)};
}

int CModelResponses::CheckSetup(std::string_view path, std::optional<double>& rate) const {
    const auto format = FormatToSetUp(settings, WithoutQuery(path));
    if (!format) return 404;
    if (format->encoding == EEncoding::Raw) return 200;
    return ParseRateQuery(path, rate) ? 200 : 400;
}

bool CModelResponses::NamesStream(std::string_view path, std::string_view setupPath) const {
    return IsSetupPathOrFolder(path, setupPath);
}

std::string CModelResponses::SessionId(std::uint64_t random) const {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string id;
    for (; id.size() < 16; random >>= 4) id += digits[random & 15];
    return id;
}

std::string CModelResponses::HeaderLine(std::string_view name, std::string_view value) const {
    std::string line(name);
    if (settings.Has(EQuirk::LowerCaseHeaders)) {
        std::ranges::transform(line, line.begin(), [](char c) {
            return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
        });
    }
    return line + ": " + std::string(value) + "\r\n";
}

SRtspResponse CModelResponses::Format(const SRtspReply& reply, const SRtspRequest& request) const {
    SRtspResponse response{StatusLine(reply.status), reply.body};
    const std::string* const sequence = request.Find("CSeq");
    if (sequence != nullptr) response.head += HeaderLine("CSeq", *sequence);
    response.head += HeaderLine("Server", serverName);
    for (const auto& [name, value] : reply.headers) response.head += HeaderLine(name, value);
    if (!reply.body.empty()) {
        response.head += HeaderLine("Content-Length", std::to_string(reply.body.size()));
    }
    response.head += "\r\n";
    return response;
}

}  // namespace korusim
