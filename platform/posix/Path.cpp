#include "Path.h"

namespace platform {

std::FILE* OpenFile(const std::filesystem::path& file, const char* mode) noexcept {
    return std::fopen(file.c_str(), mode);
}

}  // namespace platform
