/// The division of the window: panes with header, picture and footer, and the panel beside them.
#pragma once

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

}  // namespace qmxview
