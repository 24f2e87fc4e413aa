/// A file that grows by pages and is valid after each of them, even if the process is killed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace frames {

/// Holds back the writes of a page until `Commit`. New bytes then go to the end of the file first,
/// and changes of earlier bytes, such as the link from the previous page, after them. A process
/// that is killed, or a full disk, thus never leaves a link to an incomplete page. Used by one
/// thread.
class CPagedFile {
   public:
    /// Creates the file, or empties an existing one. On failure `error` returns the reason.
    explicit CPagedFile(const std::filesystem::path& path);

    /// Reads at an offset, including bytes that are held back. Returns the number of bytes read.
    [[nodiscard]] std::size_t Read(std::uint64_t offset, std::span<std::uint8_t> to);
    /// Holds back a write at an offset.
    void Write(std::uint64_t offset, std::span<const std::uint8_t> bytes);
    /// Returns the size of the file in bytes, including bytes that are held back.
    [[nodiscard]] std::uint64_t size() const noexcept { return committed + tail.size(); }

    /// Writes what is held back. On failure nothing in the file refers to the bytes of this page;
    /// `error` returns the reason, and later calls fail as well.
    [[nodiscard]] bool Commit();
    /// Returns the reason of the first failure; empty if there was none.
    [[nodiscard]] const std::string& error() const noexcept { return errorText; }

   private:
    using Bytes = std::vector<std::uint8_t>;

    [[nodiscard]] bool WriteNow(std::uint64_t offset, const Bytes& bytes);

    std::fstream file;
    std::uint64_t committed = 0;  // size of the file at the last commit
    Bytes tail;                   // held back, from `committed` on
    std::vector<std::pair<std::uint64_t, Bytes>> patches;
    std::string errorText;
};

}  // namespace frames
