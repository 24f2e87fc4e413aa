/// Saves what is shown: the picture of the window, the exact values, and how they became colours.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Pane.h"
#include "Picture.h"

namespace qmxview {

/// Everything that a snapshot consists of, copied from the panes, so that it can be written while
/// they go on.
struct SSnapshot {
    /// The picture of a pane and the name of its file.
    struct SValues {
        std::filesystem::path file;
        frames::Picture picture;
    };
    std::filesystem::path seenFile;
    frames::SColourPicture window;
    std::vector<SValues> values;
    std::filesystem::path descriptionFile;
    std::string description;  ///< JSON
};

/// Copies a snapshot of panes. It has three kinds of files: `seenFile`, the window as it is; for
/// each pane the values of its frame as a 16-bit grey PNG, or a JPEG frame as a colour PNG, with
/// "-values" or "-values-N" inserted before the extension; and, with the extension replaced by
/// ".json", the place of each picture in the window, its levels, palette and times. A pane without
/// a picture has no file of values.
[[nodiscard]] SSnapshot TakeSnapshot(const std::filesystem::path& seenFile,
                                     frames::SColourPicture window,
                                     const std::vector<const CPane*>& panes);

/// Writes the files; the description is the last one. Returns why it failed, or an empty text. Any
/// thread may call it.
[[nodiscard]] std::string WriteSnapshot(SSnapshot snapshot);

}  // namespace qmxview
