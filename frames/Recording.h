/// Recordings: many pictures in one BigTIFF file.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

#include "PagedFile.h"

struct tiff;

namespace frames {

/// The pixels of one page, row by row without padding.
struct SPage {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t samplesPerPixel = 1;  ///< 1 for grey, 3 for red, green, blue
    std::uint16_t bitsPerSample = 16;   ///< 16 (in the byte order of this machine) or 8
    std::span<const std::uint8_t> bytes;
    std::chrono::system_clock::time_point time;  ///< becomes the tag DateTime, in UTC
    std::string description;                     ///< becomes the tag ImageDescription
};

/// A BigTIFF file that is being written, one page per picture, uncompressed. The cost of a page
/// does not depend on their number. However the program ends, the file contains every page for
/// which `Add` has returned true. Used by one thread.
class CRecording {
   public:
    /// Creates the file, or empties an existing one. On failure `error` returns the reason.
    explicit CRecording(const std::filesystem::path& file);
    ~CRecording();
    CRecording(const CRecording&) = delete;
    CRecording& operator=(const CRecording&) = delete;

    /// Appends a page. Returns false if it could not be written; the file then ends with the page
    /// before, and no further page can be added.
    [[nodiscard]] bool Add(const SPage& page);
    [[nodiscard]] std::uint64_t pages() const noexcept { return count; }
    /// Returns the reason of the first failure; empty if there was none.
    [[nodiscard]] const std::string& error() const noexcept { return target.file.error(); }

   private:
    /// The file as the TIFF library uses it.
    struct STarget {
        CPagedFile file;
        std::uint64_t position = 0;
    };
    struct SCallbacks;
    struct SClose {
        void operator()(tiff* open) const;
    };

    STarget target;
    std::unique_ptr<tiff, SClose> handle;  // after `target`, which it uses until its end
    std::uint64_t count = 0;
};

/// Returns a time in UTC as "2026-11-24T09:30:00.123456Z".
[[nodiscard]] std::string UtcText(std::chrono::system_clock::time_point time);

}  // namespace frames
