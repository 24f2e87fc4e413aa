/// Files that are written as a whole or not left behind.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

namespace frames {

/// A file that is being written. Its destructor removes it unless `Keep` has returned true.
class COutputFile {
   public:
    /// Creates the file, or empties an existing one.
    explicit COutputFile(const std::string& fileName)
        : name(fileName), file(std::fopen(fileName.c_str(), "wb")) {}
    ~COutputFile();
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;

    /// Null when the file cannot be opened.
    [[nodiscard]] std::FILE* stream() const noexcept { return file; }
    /// Closes the file. Returns false when not all of it could be written, which on a full disk may
    /// show only here.
    [[nodiscard]] bool Keep();

   private:
    const std::string name;
    std::FILE* file;
};

/// Writes a file; false when it cannot be written, and then no part of it is left behind.
[[nodiscard]] bool WriteFile(const std::string& name, std::span<const std::uint8_t> bytes);

}  // namespace frames
