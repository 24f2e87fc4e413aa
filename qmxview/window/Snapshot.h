/// Saves what is shown: the picture of the window, the exact values, and how they became colours.
#pragma once

#include <string>
#include <vector>

#include "Pane.h"
#include "Picture.h"

namespace qmxview {

/// Writes three kinds of files: `seen`, the window as it is; for each pane the values of its frame
/// as a 16-bit grey PNG, or a JPEG frame as a colour PNG, with "-values" or "-values-N" inserted
/// before the extension; and, with the extension replaced by ".json", the place of each picture in
/// the window, its levels, palette and times. Returns why it failed, or an empty text. A pane
/// without a picture has no file of values.
[[nodiscard]] std::string SaveSnapshot(const std::string& seen, frames::SColourPicture window,
                                       const std::vector<const CPane*>& panes);

}  // namespace qmxview
