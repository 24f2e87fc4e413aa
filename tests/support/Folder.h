/// A temporary folder, removed at the end of the scope.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace test {

struct SFolder {
    SFolder()
        : path(
              ::mkdtemp((std::filesystem::temp_directory_path() / "koru-XXXXXX").string().data())) {
    }
    SFolder(const SFolder&) = delete;
    SFolder& operator=(const SFolder&) = delete;
    ~SFolder() { std::filesystem::remove_all(path); }
    const std::string path;
};

}  // namespace test
