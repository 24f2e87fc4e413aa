/// Shared libraries loaded at run time.
#pragma once

#include <filesystem>
#include <string>

namespace platform {

/// A shared library loaded at run time. It stays loaded until the process ends, because objects of
/// its classes may outlive this one.
class CSharedLibrary {
   public:
    /// Loads a file. On failure `valid` returns false and `error` the reason.
    explicit CSharedLibrary(const std::filesystem::path& file);

    [[nodiscard]] bool valid() const noexcept { return library != nullptr; }
    [[nodiscard]] const std::string& error() const noexcept { return errorText; }
    /// Returns an exported function, or null if there is none of that name.
    [[nodiscard]] void* Symbol(const char* name) const noexcept;

   private:
    void* library = nullptr;
    std::string errorText;
};

/// Returns the file name of a plug-in on this system, such as "x.so" for "x".
[[nodiscard]] std::string PluginFileName(const std::string& name);

}  // namespace platform
