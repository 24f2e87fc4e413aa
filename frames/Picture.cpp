#include "Picture.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "FrameDecoders.h"
#include "FrameStamp.h"
#include "PixelTypeNames.h"

namespace frames {
namespace {

constexpr std::uint32_t fullScale = 0xFFFF;
/// One in this many pixels is ignored by `StretchContrast` at either end.
constexpr std::size_t ignoredShare = 1000;

struct SRange {
    std::uint32_t low = 0;
    std::uint32_t high = 0;
};

/// Returns the darkest and the brightest value beyond the ignored share of the pixels.
SRange UsedRange(const std::vector<std::uint16_t>& pixels) {
    std::vector<std::size_t> histogram(fullScale + 1);
    for (const std::uint16_t pixel : pixels) ++histogram[pixel];
    const std::size_t ignored = pixels.size() / ignoredShare;
    SRange range{0, fullScale};
    std::size_t below = histogram[range.low];
    while (below <= ignored && range.low < range.high) below += histogram[++range.low];
    std::size_t above = histogram[range.high];
    while (above <= ignored && range.high > range.low) above += histogram[--range.high];
    return range;
}

}  // namespace

void ReadRawPicture(SGreyPicture& picture, std::span<const std::uint8_t> frame,
                    std::uint32_t width) {
    const std::size_t pixels = width == 0 ? 0 : frame.size() / 2;
    const std::size_t lines = pixels == 0 ? 0 : (pixels + width - 1) / width;
    picture.width = width;
    picture.height = static_cast<std::uint32_t>(lines);
    picture.pixels.resize(lines * width);
    if (pixels == 0) return;
    std::memcpy(framestamp::BytesOf(picture.pixels).data(), frame.data(), 2 * pixels);
    // Zeros would be darker than any pixel and spoil the contrast.
    std::fill(picture.pixels.begin() + static_cast<std::ptrdiff_t>(pixels), picture.pixels.end(),
              picture.pixels[pixels - 1]);
}

SGreyPicture RawPicture(std::span<const std::uint8_t> frame, std::uint32_t width) {
    SGreyPicture picture;
    ReadRawPicture(picture, frame, width);
    return picture;
}

std::optional<Picture> DecodePicture(std::span<const std::uint8_t> frame, const qmx::SGuid& type,
                                     std::uint32_t width) {
    if (type == jpegType) {
        auto picture = DecodeJpeg(frame, EJpegForm::Colour);
        if (!picture) return std::nullopt;
        return SColourPicture{picture->width, picture->height, std::move(picture->samples)};
    }
    SGreyPicture picture;
    if (type == jlsType) {
        const auto decoded = DecodeJpegLs(frame);
        if (!decoded) return std::nullopt;
        picture = RawPicture(decoded->bytes, decoded->width);
    } else {
        picture = RawPicture(frame, width);
    }
    if (picture.pixels.empty()) return std::nullopt;
    return picture;
}

std::size_t StampPixels(const SGreyPicture& picture) {
    if (picture.width <= framestamp::stampPixels) return 0;
    return framestamp::HasMagicNumber(picture.pixels) ? framestamp::stampPixels : 0;
}

void HideStamp(SGreyPicture& picture) {
    if (picture.pixels.size() <= framestamp::stampPixels) return;
    const auto state = framestamp::ReadStamp(framestamp::BytesOf(picture.pixels)).state;
    if (state == framestamp::EStamp::Absent) return;
    const std::uint16_t neighbour = picture.pixels[framestamp::stampPixels];
    std::fill_n(picture.pixels.begin(), framestamp::stampPixels, neighbour);
}

void StretchContrast(SGreyPicture& picture) {
    const SRange range = UsedRange(picture.pixels);
    if (range.high <= range.low) {
        std::ranges::fill(picture.pixels, static_cast<std::uint16_t>(fullScale / 2));
        return;
    }
    for (std::uint16_t& pixel : picture.pixels) {
        const std::uint32_t inside = std::clamp<std::uint32_t>(pixel, range.low, range.high);
        // At most 0xFFFF times 0xFFFF, which fits in 32 bits.
        const std::uint32_t stretched = (inside - range.low) * fullScale / (range.high - range.low);
        pixel = static_cast<std::uint16_t>(stretched);
    }
}

}  // namespace frames
