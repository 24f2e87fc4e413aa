#include "OutputFile.h"

#include <system_error>
#include <utility>

#include "Path.h"

namespace frames {
namespace {

/// Removes a regular file. The name may also be that of a device such as /dev/full.
void RemoveRegular(const std::filesystem::path& name) {
    std::error_code error;
    if (std::filesystem::is_regular_file(std::filesystem::symlink_status(name, error))) {
        std::filesystem::remove(name, error);
    }
}

}  // namespace

COutputFile::COutputFile(const std::filesystem::path& fileName)
    : name(fileName), file(platform::OpenFile(fileName, "wb")) {}

COutputFile::~COutputFile() {
    if (file == nullptr) return;
    std::fclose(file);
    RemoveRegular(name);
}

bool COutputFile::Keep() {
    if (file == nullptr) return false;
    const bool whole = std::ferror(file) == 0;
    const bool closed = std::fclose(std::exchange(file, nullptr)) == 0;
    if (whole && closed) return true;
    RemoveRegular(name);
    return false;
}

bool WriteFile(const std::filesystem::path& name, std::span<const std::uint8_t> bytes) {
    COutputFile file(name);
    if (file.stream() == nullptr) return false;
    std::fwrite(bytes.data(), 1, bytes.size(), file.stream());
    return file.Keep();
}

}  // namespace frames
