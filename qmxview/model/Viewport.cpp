#include "Viewport.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace qmxview {
namespace {

constexpr double zoomSteps[] = {leastZoom, 0.25, 0.5, 1,  2,  3,  4,       6,
                                8,         12,   16,  24, 32, 48, mostZoom};

double NextScale(double scale, bool larger) {
    constexpr double tolerance = 1e-9;
    if (larger) {
        const auto* const next =
            std::upper_bound(std::begin(zoomSteps), std::end(zoomSteps), scale * (1 + tolerance));
        return next == std::end(zoomSteps) ? scale : *next;
    }
    const auto* const next =
        std::lower_bound(std::begin(zoomSteps), std::end(zoomSteps), scale * (1 - tolerance));
    return next == std::begin(zoomSteps) ? scale : *std::prev(next);
}

/// Returns where a length begins that is centred in an interval, or that covers it around a point
/// at `offset` from its beginning.
double Place(double begin, double room, double length, double offset) {
    if (length <= room) return begin + std::floor((room - length) / 2);
    const double wanted = std::round(begin + room / 2 - offset);
    return std::clamp(wanted, begin + room - length, begin);
}

}  // namespace

void CViewport::SetPicture(std::uint32_t pictureWidth, std::uint32_t pictureHeight) {
    if (width == pictureWidth && height == pictureHeight) return;
    width = pictureWidth;
    height = pictureHeight;
    ++changes;
    centre = {width / 2.0, height / 2.0};
}

void CViewport::SetArea(const SRect& screenArea) noexcept {
    if (area == screenArea) return;
    area = screenArea;
    ++changes;
}

void CViewport::Fit() noexcept {
    fixedScale.reset();
    ++changes;
}

void CViewport::Rotate() noexcept {
    ++changes;
    // The mirror image turns the other way round.
    turns = (turns + (mirror ? 3 : 1)) % 4;
}

void CViewport::Mirror() noexcept {
    mirror = !mirror;
    ++changes;
}

void CViewport::SetScale(double scale) noexcept {
    fixedScale = std::clamp(scale, leastZoom, mostZoom);
    centre = {width / 2.0, height / 2.0};
    ++changes;
}

double CViewport::scale() const noexcept {
    if (fixedScale) return *fixedScale;
    if (width == 0 || height == 0 || area.empty()) return 1;
    return std::min(area.width / shownWidth(), area.height / shownHeight());
}

SPoint CViewport::Size() const noexcept {
    const double by = scale();
    return {std::max(1.0, std::round(shownWidth() * by)),
            std::max(1.0, std::round(shownHeight() * by))};
}

SPoint CViewport::Origin() const noexcept {
    const SPoint size = Size();
    const SPoint shown = ToShown(centre);
    return {Place(area.x, area.width, size.x, shown.x * scale()),
            Place(area.y, area.height, size.y, shown.y * scale())};
}

void CViewport::Zoom(int steps, SPoint anchor) noexcept {
    const double before = scale();
    double after = before;
    for (int i = 0; i < std::abs(steps); ++i) after = NextScale(after, steps > 0);
    if (after == before) return;
    const SPoint origin = Origin();
    const SPoint held{(anchor.x - origin.x) / before, (anchor.y - origin.y) / before};
    fixedScale = after;
    centre = FromShown({held.x + (area.x + area.width / 2.0 - anchor.x) / after,
                        held.y + (area.y + area.height / 2.0 - anchor.y) / after});
    Pan(0, 0);
}

void CViewport::Pan(double dx, double dy) noexcept {
    // Starts from where the picture is, so that movements beyond its edge do not add up.
    const double by = scale();
    const SPoint origin = Origin();
    const SPoint middle{(area.x + area.width / 2.0 - origin.x - dx) / by,
                        (area.y + area.height / 2.0 - origin.y - dy) / by};
    centre = FromShown(middle);
    ++changes;
}

SPoint CViewport::ToShown(SPoint p) const noexcept {
    SPoint shown = p;
    if (turns == 1) shown = {height - p.y, p.x};
    if (turns == 2) shown = {width - p.x, height - p.y};
    if (turns == 3) shown = {p.y, width - p.x};
    if (mirror) shown.x = shownWidth() - shown.x;
    return shown;
}

SPoint CViewport::FromShown(SPoint shown) const noexcept {
    if (mirror) shown.x = shownWidth() - shown.x;
    if (turns == 1) return {shown.y, height - shown.x};
    if (turns == 2) return {width - shown.x, height - shown.y};
    if (turns == 3) return {width - shown.y, shown.x};
    return shown;
}

SRect CViewport::Visible() const noexcept {
    if (width == 0 || height == 0 || area.empty()) return {};
    const SPoint origin = Origin();
    const SPoint size = Size();
    const int left = std::max(area.x, static_cast<int>(origin.x));
    const int top = std::max(area.y, static_cast<int>(origin.y));
    const int right = std::min(area.x + area.width, static_cast<int>(origin.x + size.x));
    const int bottom = std::min(area.y + area.height, static_cast<int>(origin.y + size.y));
    return {left, top, std::max(0, right - left), std::max(0, bottom - top)};
}

std::optional<SPixel> CViewport::PixelOf(SPoint screen) const noexcept {
    const SPoint origin = Origin();
    const SPoint size = Size();
    // The rounded size may differ from the exact one by half a pixel.
    const SPoint picture = FromShown({(screen.x - origin.x) / size.x * shownWidth(),
                                      (screen.y - origin.y) / size.y * shownHeight()});
    const auto inside = [](double value, std::uint32_t length) {
        return static_cast<std::uint32_t>(std::clamp(std::floor(value), 0.0, length - 1.0));
    };
    return SPixel{inside(picture.x, width), inside(picture.y, height)};
}

std::optional<SPixel> CViewport::PixelAt(int screenX, int screenY) const noexcept {
    if (!Visible().Contains(screenX, screenY)) return std::nullopt;
    return PixelOf({screenX + 0.5, screenY + 0.5});
}

SPoint CViewport::ToScreen(SPoint picture) const noexcept {
    const SPoint origin = Origin();
    const SPoint size = Size();
    const SPoint shown = ToShown(picture);
    return {origin.x + shown.x / shownWidth() * size.x,
            origin.y + shown.y / shownHeight() * size.y};
}

SIndexMap CViewport::Map() const {
    SIndexMap map;
    const SRect visible = Visible();
    if (visible.empty()) return map;
    // A column decides one coordinate of the pixel and a row the other one, so that the pixels of
    // the first row and of the first column suffice.
    const auto index = [&](int x, int y) {
        const SPixel pixel = PixelAt(x, y).value_or(SPixel{});
        return turns % 2 == 0 ? SPixel{pixel.x, pixel.y * width} : SPixel{pixel.y * width, pixel.x};
    };
    for (int i = 0; i < visible.width; ++i) {
        map.columns.push_back(index(visible.x + i, visible.y).x);
    }
    for (int j = 0; j < visible.height; ++j) {
        map.rows.push_back(index(visible.x, visible.y + j).y);
    }
    return map;
}

}  // namespace qmxview
