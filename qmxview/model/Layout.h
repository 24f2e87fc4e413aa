/// The division of the window: panes with header, picture and footer, and the panel beside them.
#pragma once

#include <array>
#include <vector>

#include "Viewport.h"

namespace qmxview {

struct SPaneLayout {
    SRect whole;
    SRect header;   ///< camera and format
    SRect picture;  ///< the area of the picture; no text is ever drawn over it
    SRect footer;   ///< value under the cursor, rates
};

struct SLayout {
    SRect panel;  ///< empty if the window is too narrow
    std::vector<SPaneLayout> panes;
};

/// Divides a window of this size in pixels among `panes` panes, in rows from left to right. `unit`
/// is the number of pixels for each pixel of a screen with ordinary resolution.
[[nodiscard]] SLayout DivideWindow(int width, int height, std::size_t panes, double unit);

/// A text that belongs to a point of the picture.
struct SLabel {
    SPoint at;  ///< on the screen
    int width = 0;
    int height = 0;
};
/// Places two labels in a picture, each beside its point at this distance if there is room, so that
/// neither covers the other or leaves the picture. A label is empty if its point is not in the
/// picture, or if there is no such place.
[[nodiscard]] std::array<SRect, 2> PlaceLabels(const std::array<SLabel, 2>& labels, int distance,
                                               const SRect& picture);

}  // namespace qmxview
