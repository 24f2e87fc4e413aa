// Stream descriptions and everything that is derived from them: catalogue, format search, paths.
//
// Input: 2 bytes each for the requested width and height, 8 bytes for a rate, then the description.
#include <bit>
#include <cmath>

#include "FormatSearch.h"
#include "FuzzInput.h"
#include "RtspStream.h"

namespace {

using namespace qmx::cam;
using priv::SStreamKind;

std::vector<const SRtspFormat*> FormatsOf(const SRtspStream& stream, const SStreamKind& kind) {
    std::vector<const SRtspFormat*> formats;
    for (const SRtspMedia& media : stream.media) {
        for (const SRtspFormat& format : media.formats) {
            if (format.rtpmap.find(kind.encodingName) == 0) formats.push_back(&format);
        }
    }
    return formats;
}

/// Returns the distance of two sizes if their difference wraps.
std::int64_t Apart(std::uint32_t left, std::uint32_t right) {
    return std::abs(std::int64_t{static_cast<std::int32_t>(left - right)});
}

void CheckKind(const SRtspStream& stream, const SStreamKind& kind, std::uint16_t width,
               std::uint16_t height) {
    const auto formats = FormatsOf(stream, kind);
    qmx::TArray<qmx::cam::IDevice::SFormat> catalogue;
    priv::AddCatalogueEntries(stream, kind, catalogue);
    FUZZ_REQUIRE(catalogue.count() == formats.size());

    const SRtspFormat* const found = priv::FindFormat(stream, kind, width, height);
    if (width == 0 || height == 0) FUZZ_REQUIRE(found == nullptr);
    if (found != nullptr) {
        FUZZ_REQUIRE(std::find(formats.begin(), formats.end(), found) != formats.end());
        const priv::SStreamPaths paths = priv::RawPaths(*found);
        FUZZ_REQUIRE(paths.setup == "/sid=" + found->payload && paths.control == paths.setup);
    }
    // No rejected format is closer in both dimensions.
    const std::int64_t widthApart = Apart(found != nullptr ? found->width : 0, width);
    const std::int64_t heightApart = Apart(found != nullptr ? found->height : 0, height);
    for (const SRtspFormat* format : formats) {
        FUZZ_REQUIRE(Apart(format->width, width) >= widthApart ||
                     Apart(format->height, height) >= heightApart);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::CFuzzInput input(data, size);
    const auto width = input.Take<std::uint16_t>();
    const auto height = input.Take<std::uint16_t>();
    const auto rate = std::bit_cast<double>(input.Take<std::uint64_t>());
    const fuzz::ExactBytes body = fuzz::ExactCopy(input.TakeRest());

    const SRtspStream stream = ParseDescription(fuzz::AsText(body));
    std::size_t formats = 0;
    for (const SRtspMedia& media : stream.media) formats += media.formats.size();
    FUZZ_REQUIRE(formats >= stream.media.size());
    FUZZ_REQUIRE(2 * formats <= body.size());  // each has at least a word
    for (const SStreamKind* kind : {&priv::rawKind, &priv::jpegLsKind, &priv::jpegKind}) {
        CheckKind(stream, *kind, width, height);
    }

    const priv::SStreamPaths paths = priv::CompressedPaths(priv::jpegKind, rate);
    const std::string begin = "/mjpg/stream=0?frate=";
    FUZZ_REQUIRE(paths.setup.starts_with(begin) && paths.control == "/mjpg");
    const double written = std::stod(paths.setup.substr(begin.size()));
    if (std::abs(rate) < 2147483647.0) FUZZ_REQUIRE(std::abs(written - rate) <= 0.5);
    return 0;
}
