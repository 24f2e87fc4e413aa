#include "PaneModel.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace qmxview {
namespace {

/// Pictures whose values differ by less than this look uniform, in spite of stretched contrast.
constexpr double uniformSpread = 4;
/// A picture is uniform when all but this percentage of its pixels have the same colour.
constexpr double ignoredPercent = 0.1;

/// Pictures of more pixels than this are sampled for the histogram.
constexpr std::size_t sampledFrom = 65536;

bool SamePalette(const frames::Palette& a, const frames::Palette& b) {
    return std::ranges::equal(a, b, [](frames::SColour x, frames::SColour y) {
        return frames::Opaque(x) == frames::Opaque(y);
    });
}

bool SameColouring(const frames::SColouring& a, const frames::SColouring& b) {
    const auto range = [](const std::optional<frames::SValueRange>& isotherm) {
        return isotherm ? std::pair<int, int>(isotherm->low, isotherm->high) : std::pair(-1, -1);
    };
    return a.levels.low == b.levels.low && a.levels.high == b.levels.high &&
           range(a.isotherm) == range(b.isotherm) && a.saturation == b.saturation &&
           SamePalette(a.palette, b.palette);
}

}  // namespace

CPaneModel::CPaneModel(SPaneSettings initial, const std::optional<SValueScale>& scale)
    : settings(std::move(initial)), texts(scale) {}

const frames::SGreyPicture& CPaneModel::shown() const noexcept {
    if (frame == nullptr) return reference;  // empty
    return difference.pixels.empty() ? frame->values : difference;
}

void CPaneModel::Show(const SViewFrame& newest, double seconds) {
    const bool otherSize = frame == nullptr || newest.values.width != frameWidth ||
                           newest.values.height != frameHeight;
    if (otherSize) measured.reset();
    frameWidth = newest.values.width;
    frameHeight = newest.values.height;
    frame = &newest;
    ignored = frames::StampPixels(frame->values);
    Subtract();
    viewport.SetPicture(shown().width, shown().height);
    texts.SetScaled(!coloured());
    UpdateLevels(seconds);
    Measure(true);
}

void CPaneModel::UpdateLevels(double seconds) {
    const auto pixels = std::span(shown().pixels);
    counts.Count(pixels.subspan(std::min(ignored, pixels.size())),
                 pixels.size() > sampledFrom ? 4 : 1);
    const frames::SLevels followed = automatic.Follow(counts, settings.percentile, seconds);
    if (settings.automaticLevels) {
        own = {std::round(followed.low), std::round(followed.high)};
    } else {
        own = settings.lockedLevels;
    }
}

void CPaneModel::SettingsChanged() {
    if (frame == nullptr) return;
    constexpr double atOnce = 1000;  // seconds, long enough to settle
    UpdateLevels(atOnce);
    Measure(false);
}

void CPaneModel::Subtract() {
    const bool fits = hasReference() && reference.width == frame->values.width &&
                      reference.pixels.size() == frame->values.pixels.size();
    texts.SetDifference(fits);
    if (!fits) {
        // The reference is of a format that is no longer received.
        if (hasReference()) automatic.Restart();
        reference = {};
        difference = {};
        return;
    }
    difference.width = reference.width;
    difference.height = reference.height;
    difference.pixels.resize(reference.pixels.size());
    std::ranges::transform(
        frame->values.pixels, reference.pixels, difference.pixels.begin(), [](int now, int then) {
            return static_cast<std::uint16_t>(std::clamp(differenceZero + now - then, 0, 65535));
        });
}

void CPaneModel::SetReference() {
    if (frame == nullptr || frame->values.pixels.empty()) return;
    reference = frame->values;
    Subtract();
    automatic.Restart();
    settings.automaticLevels = true;  // locked levels would be those of other values
    overTime.Clear();
    SettingsChanged();
}

void CPaneModel::ClearReference() {
    reference = {};
    difference = {};
    texts.SetDifference(false);
    automatic.Restart();
    settings.automaticLevels = true;
    overTime.Clear();
    SettingsChanged();
}

void CPaneModel::SetRegion(const std::optional<frames::SRegion>& pixels) {
    measured = pixels;
    overTime.Clear();
    if (frame != nullptr) Measure(false);
}

void CPaneModel::SetCursor(const std::optional<SPixel>& pixel) {
    if (cursorPixel == pixel) return;
    cursorPixel = pixel;
    if (!measured) overTime.Clear();
}

void CPaneModel::ToggleIsotherm() {
    if (hasReference()) return;
    settings.markIsotherm = !settings.markIsotherm;
    if (settings.isotherm.high != 0) return;
    const frames::SLevels& now = levels();
    settings.isotherm = {static_cast<std::uint16_t>(now.low + (now.high - now.low) * 0.75),
                         static_cast<std::uint16_t>(now.high)};
}

void CPaneModel::LockLevels(frames::SLevels levels) {
    settings.automaticLevels = false;
    settings.lockedLevels = {std::clamp(levels.low, 0.0, 65535.0),
                             std::clamp(levels.high, levels.low, 65535.0)};
    own = settings.lockedLevels;
}

void CPaneModel::Measure(bool newFrame) {
    const frames::SGreyPicture& picture = shown();
    regionResult.reset();
    if (measured) regionResult = frames::Measure(picture, *measured, ignored);
    wholeResult.reset();
    if (settings.markSpots) {
        wholeResult = frames::Measure(picture, {0, 0, picture.width, picture.height}, ignored);
    }
    if (!newFrame) return;
    if (regionResult) {
        overTime.Add(static_cast<float>(Signed(regionResult->mean)));
    } else if (!measured && cursorPixel && cursorPixel->x < picture.width &&
               cursorPixel->y < picture.height) {
        const std::size_t index = std::size_t{cursorPixel->y} * picture.width + cursorPixel->x;
        overTime.Add(static_cast<float>(Signed(picture.pixels[index])));
    }
}

void CPaneModel::UpdateColours() {
    frames::SColouring wanted;
    wanted.palette = frames::FindPalette(settings.palette).value_or(frames::Palette{});
    wanted.levels = levels();
    // Marks select values of the camera, not differences.
    if (settings.markIsotherm && !hasReference()) wanted.isotherm = settings.isotherm;
    if (settings.markSaturation && !hasReference()) {
        wanted.saturation = static_cast<std::uint16_t>(std::clamp(settings.saturation, 0, 65535));
    }
    if (coloursValid && SameColouring(wanted, coloursFor)) return;
    coloursFor = wanted;
    coloursValid = true;
    frames::FillColourTable(std::span<frames::Argb, 65536>(colours), wanted);
}

void CPaneModel::Paint(frames::Argb* to, std::size_t pitch, bool greyed) {
    if (!hasPicture()) return;
    if (mapRevision != viewport.revision()) {
        map = viewport.Map();
        mapRevision = viewport.revision();
    }
    UpdateColours();
    const auto paint = [&](auto colourOf) {
        for (const std::size_t row : map.rows) {
            frames::Argb* pixel = to;
            for (const std::size_t column : map.columns) *pixel++ = colourOf(row + column);
            to += pitch;
        }
    };
    const std::uint16_t* const values = shown().pixels.data();
    const frames::Argb* const table = colours.data();
    const auto grey = [=](std::size_t i) { return table[values[i]]; };
    const auto colour = [samples = frame->colours.data()](std::size_t i) {
        return frames::Opaque({samples[3 * i], samples[3 * i + 1], samples[3 * i + 2]});
    };
    const bool ownColours = coloured() && !hasReference();
    if (greyed && ownColours)
        return paint([&](std::size_t i) { return frames::Greyed(colour(i)); });
    if (greyed) return paint([&](std::size_t i) { return frames::Greyed(grey(i)); });
    if (ownColours) return paint(colour);
    paint(grey);
}

double CPaneModel::Signed(double value) const noexcept {
    return difference.pixels.empty() ? value : value - differenceZero;
}

std::string CPaneModel::ValueText(double value) const { return texts.Value(Signed(value)); }

std::string CPaneModel::CursorText() const {
    const frames::SGreyPicture& picture = shown();
    if (!cursorPixel || cursorPixel->x >= picture.width || cursorPixel->y >= picture.height) {
        return {};
    }
    const std::size_t index = std::size_t{cursorPixel->y} * picture.width + cursorPixel->x;
    std::string text = "(" + std::to_string(cursorPixel->x) + ", " +
                       std::to_string(cursorPixel->y) + ")  " + ValueText(picture.pixels[index]);
    if (coloured()) {
        const std::uint8_t* const rgb = &frame->colours[3 * index];
        text += "  (R " + std::to_string(rgb[0]) + ", G " + std::to_string(rgb[1]) + ", B " +
                std::to_string(rgb[2]) + ")";
    }
    return text;
}

std::string CPaneModel::UniformText() const {
    if (counts.total() == 0 || (coloured() && !hasReference())) return {};
    const frames::SLevels range = counts.Percentile(0);
    const frames::SLevels most = counts.Percentile(ignoredPercent);
    const auto value = [this](double number) { return Plain(Signed(number)); };
    if (range.high - range.low < uniformSpread) {
        return "all values " + value(range.low) + ".." + value(range.high);
    }
    const frames::SLevels& used = levels();
    if (most.high <= used.low || most.low >= used.high) {
        return std::string("values ") + value(most.low) + ".." + value(most.high) + " are all " +
               (most.high <= used.low ? "below" : "above") +
               " the levels; A sets them automatically";
    }
    return {};
}

frames::SLevels CommonLevels(std::span<const frames::SLevels> each) {
    frames::SLevels common;
    for (std::size_t i = 0; i < each.size(); ++i) {
        common.low = i == 0 ? each[i].low : std::min(common.low, each[i].low);
        common.high = i == 0 ? each[i].high : std::max(common.high, each[i].high);
    }
    return common;
}

}  // namespace qmxview
