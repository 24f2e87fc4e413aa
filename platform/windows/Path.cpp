#include "Path.h"

#include <cstddef>
#include <iterator>

namespace platform {

std::FILE* OpenFile(const std::filesystem::path& file, const char* mode) noexcept {
    wchar_t wideMode[8] = {};
    for (std::size_t i = 0; i + 1 < std::size(wideMode) && mode[i] != 0; ++i) {
        wideMode[i] = static_cast<wchar_t>(mode[i]);  // modes are ASCII
    }
    return ::_wfopen(file.c_str(), wideMode);
}

}  // namespace platform
