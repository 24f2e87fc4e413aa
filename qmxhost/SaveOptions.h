/// Options for saving the frames of a stream, and the results.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace qmxhost {

enum class ESaveAs {
    Native,  ///< each frame in a file, unchanged
    Png,     ///< each frame in a file, as a picture
    Tiff,    ///< all frames in one file, with their exact values
};

struct SSaveOptions {
    std::filesystem::path target;  ///< a folder, a file for a recording, or "-" for standard output
    ESaveAs as = ESaveAs::Native;
    std::string palette;     ///< for PNG; empty means grey
    bool overwrite = false;  ///< frames of another run may be replaced
};

inline constexpr const char* standardOutput = "-";

/// The result of saving one frame.
enum class ESaved { Saved, Undecodable, Empty };

/// The results of all frames that were to be saved.
struct SSaveTotals {
    std::uint64_t saved = 0;
    std::uint64_t undecodable = 0;  ///< could not be decoded
    std::uint64_t empty = 0;        ///< had no bytes
};

}  // namespace qmxhost
