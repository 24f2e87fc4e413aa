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

}  // namespace qmxview
