#include "Layout.h"

#include <algorithm>
#include <cmath>

namespace qmxview {
namespace {

// Sizes on a screen with ordinary resolution.
constexpr int panelWidth = 320;
constexpr int leastPictureWidth = 240;  // with less beside it, the panel is hidden
constexpr int headerHeight = 26;
constexpr int footerHeight = 46;
constexpr int gap = 2;

SPaneLayout DividePane(const SRect& whole, double unit) {
    const int header = std::min(whole.height, static_cast<int>(headerHeight * unit));
    const int footer = std::min(whole.height - header, static_cast<int>(footerHeight * unit));
    const int picture = whole.height - header - footer;
    return {whole,
            {whole.x, whole.y, whole.width, header},
            {whole.x, whole.y + header, whole.width, picture},
            {whole.x, whole.y + header + picture, whole.width, footer}};
}

bool Overlap(const SRect& a, const SRect& b) {
    return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height &&
           b.y < a.y + a.height;
}

bool IsWithin(const SRect& inner, const SRect& outer) {
    return inner.x >= outer.x && inner.x + inner.width <= outer.x + outer.width &&
           inner.y >= outer.y && inner.y + inner.height <= outer.y + outer.height;
}

/// Returns the place beside the point, moved into the picture. A negative distance is to the left.
SRect Beside(const SLabel& label, int distance, const SRect& picture) {
    const auto inside = [](double wanted, int begin, int room, int length) {
        return std::clamp(static_cast<int>(std::floor(wanted)), begin,
                          std::max(begin, begin + room - length));
    };
    const double left = label.at.x + distance - (distance < 0 ? label.width : 0);
    return {inside(left, picture.x, picture.width, label.width),
            inside(label.at.y - label.height / 2.0, picture.y, picture.height, label.height),
            label.width, label.height};
}

}  // namespace

SLayout DivideWindow(int width, int height, std::size_t panes, double unit) {
    SLayout layout;
    const int panel = static_cast<int>(panelWidth * unit);
    int room = width;
    if (width - panel >= leastPictureWidth * unit) {
        room = width - panel;
        layout.panel = {room, 0, panel, height};
    }
    if (panes == 0) return layout;
    const auto count = static_cast<int>(panes);
    const int columns = static_cast<int>(std::ceil(std::sqrt(count)));
    const int rows = (count + columns - 1) / columns;
    for (int i = 0; i < count; ++i) {
        const int left = room * (i % columns) / columns;
        const int right = room * (i % columns + 1) / columns - gap;
        const int top = height * (i / columns) / rows;
        const int bottom = height * (i / columns + 1) / rows - (i / columns + 1 == rows ? 0 : gap);
        layout.panes.push_back(
            DividePane({left, top, std::max(0, right - left), std::max(0, bottom - top)}, unit));
    }
    return layout;
}

std::array<SRect, 2> PlaceLabels(const std::array<SLabel, 2>& labels, int distance,
                                 const SRect& picture) {
    std::array<SRect, 2> places;
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const SLabel& label = labels[i];
        if (!picture.Contains(static_cast<int>(label.at.x), static_cast<int>(label.at.y))) continue;
        // On different sides, because both points may be next to each other.
        const SRect preferred = Beside(label, i == 0 ? distance : -distance, picture);
        const SRect opposite = Beside(label, i == 0 ? -distance : distance, picture);
        const SRect above{preferred.x, places[0].y - label.height, label.width, label.height};
        const SRect below{preferred.x, places[0].y + places[0].height, label.width, label.height};
        const auto coversPoint = [&](const SRect& place) {
            // A place is in whole pixels.
            return place.x + 1 < label.at.x + distance &&
                   place.x + place.width - 1 > label.at.x - distance;
        };
        const bool turn = coversPoint(preferred) && !coversPoint(opposite);
        for (const SRect& place :
             {turn ? opposite : preferred, turn ? preferred : opposite, above, below}) {
            if (!IsWithin(place, picture) || Overlap(place, places[0])) continue;
            places[i] = place;
            break;
        }
    }
    return places;
}

}  // namespace qmxview
