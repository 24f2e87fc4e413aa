#include "FormatSearch.h"

#include <cmath>
#include <limits>

#include "PixelTypes.h"

namespace qmx::cam::priv {

constinit const SStreamKind rawKind = {pixelTypeRaw, "/", "ZRAW", "ZRAW"};
constinit const SStreamKind jpegLsKind = {pixelTypeJpegLs, "/mjls", "MJLS", "MJLS"};
// Its encoding name and its stream name differ.
constinit const SStreamKind jpegKind = {pixelTypeJpeg, "/mjpg", "JPEG", "MJPG"};

namespace {

bool HasEncoding(const SRtspFormat& format, const SStreamKind& kind) {
    return format.rtpmap.starts_with(kind.encodingName);
}

/// Absolute difference of two sizes in signed 32-bit arithmetic, which wraps for the sizes beyond
/// 2147483647 that only a broken description contains. A difference of exactly 2^31 has no positive
/// counterpart there; the unsigned result makes it the largest distance instead of a negative one,
/// which would beat an exact match.
std::uint32_t Distance(std::uint32_t left, std::uint32_t right) noexcept {
    const std::uint32_t difference = left - right;
    return static_cast<std::int32_t>(difference) < 0 ? 0 - difference : difference;
}

/// Rounds a rate, halves away from zero, to a signed 32-bit integer. A rate that does not fit, and
/// NaN, becomes the smallest integer, as a conversion does in a 64-bit Windows process.
std::int32_t WholeRate(double rate) noexcept {
    const double rounded = std::round(rate);
    constexpr double least = std::numeric_limits<std::int32_t>::min();
    constexpr double most = std::numeric_limits<std::int32_t>::max();
    if (!(rounded >= least && rounded <= most)) return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(rounded);
}

}  // namespace

void AddCatalogueEntries(const SRtspStream& stream, const SStreamKind& kind,
                         TArray<IDevice::SFormat>& catalogue) {
    for (const SRtspMedia& media : stream.media) {
        for (const SRtspFormat& format : media.formats) {
            if (!HasEncoding(format, kind)) continue;
            catalogue.append({static_cast<std::uint16_t>(format.width),
                              static_cast<std::uint16_t>(format.height), kind.pixelType});
        }
    }
}

const SRtspFormat* FindFormat(const SRtspStream& stream, const SStreamKind& kind,
                              std::uint16_t width, std::uint16_t height) {
    const SRtspFormat* best = nullptr;
    std::uint32_t bestWidth = 0;
    std::uint32_t bestHeight = 0;
    for (const SRtspMedia& media : stream.media) {
        for (const SRtspFormat& format : media.formats) {
            if (!HasEncoding(format, kind)) continue;
            if (Distance(format.width, width) >= Distance(bestWidth, width)) continue;
            if (Distance(format.height, height) >= Distance(bestHeight, height)) continue;
            best = &format;
            bestWidth = format.width;
            bestHeight = format.height;
        }
    }
    return best;
}

SStreamPaths RawPaths(const SRtspFormat& format) {
    const std::string path = "/sid=" + format.payload;
    return {path, path};
}

SStreamPaths CompressedPaths(const SStreamKind& kind, std::optional<double> rate) {
    std::string setup = std::string(kind.describePath) + "/stream=0";
    if (rate) setup += "?frate=" + std::to_string(WholeRate(*rate));
    return {setup, kind.describePath};
}

}  // namespace qmx::cam::priv
