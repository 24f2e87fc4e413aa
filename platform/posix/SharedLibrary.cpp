#include "SharedLibrary.h"

#include <dlfcn.h>

namespace platform {

CSharedLibrary::CSharedLibrary(const std::filesystem::path& file)
    : library(::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (library != nullptr) return;
    const char* const why = ::dlerror();
    errorText = why != nullptr ? why : "unknown reason";
}

void* CSharedLibrary::Symbol(const char* name) const noexcept { return ::dlsym(library, name); }

std::string PluginFileName(const std::string& name) { return name + ".so"; }

}  // namespace platform
