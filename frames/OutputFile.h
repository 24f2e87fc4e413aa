/// Files that are either written completely or removed.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <span>

namespace frames {

/// A file that is being written. Its destructor removes it unless `Keep` has returned true.
class COutputFile {
   public:
    /// Creates the file, or empties an existing one.
    explicit COutputFile(const std::filesystem::path& fileName);
    ~COutputFile();
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;

    /// Returns the stream, or null if the file cannot be opened.
    [[nodiscard]] std::FILE* stream() const noexcept { return file; }
    /// Closes the file. Returns false if not all of it could be written, which on a full disk may
    /// become apparent only here.
    [[nodiscard]] bool Keep();

   private:
    const std::filesystem::path name;
    std::FILE* file;
};

/// Writes a file. Returns false if it cannot be written; no part of it then remains.
[[nodiscard]] bool WriteFile(const std::filesystem::path& name,
                             std::span<const std::uint8_t> bytes);

}  // namespace frames
