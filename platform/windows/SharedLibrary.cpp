#include "SharedLibrary.h"

#include <windows.h>

#include "WideText.h"

namespace platform {

// Also searches the folder of the plug-in, because the host's libraries may be there. That requires
// an absolute path.
CSharedLibrary::CSharedLibrary(const std::filesystem::path& file)
    : library(
          ::LoadLibraryExW(std::filesystem::absolute(file).c_str(), nullptr,
                           LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS)) {
    if (library != nullptr) return;
    errorText = SystemErrorText(::GetLastError());
}

void* CSharedLibrary::Symbol(const char* name) const noexcept {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

std::string PluginFileName(const std::string& name) { return name + ".dll"; }

}  // namespace platform
