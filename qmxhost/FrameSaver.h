/// Saves the frames of a stream.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "FrameQueue.h"
#include "Palette.h"
#include "PictureWriter.h"
#include "qmxcam.h"

namespace qmxhost {

struct SSaveOptions {
    std::string target;   ///< a folder, or "-" for standard output
    bool asPng = false;   ///< otherwise the bytes as received
    std::string palette;  ///< for PNG; empty means grey
};

/// What happened to the frames that were to be saved.
struct SSaveTotals {
    std::uint64_t saved = 0;
    std::uint64_t undecodable = 0;  ///< could not be decoded
    std::uint64_t empty = 0;        ///< had no bytes
};

class CFrameSaver {
   public:
    /// Creates the folder.
    CFrameSaver(const SSaveOptions& options, const qmx::cam::IDevice::SFormat& format);

    /// Saves a frame. Skips one that contains no picture, because the next one may. Throws a
    /// `CFailure` if it cannot be written, because the next one could not be either.
    void Save(const frames::SFrame& frame);
    [[nodiscard]] const SSaveTotals& totals() const noexcept { return sums; }

   private:
    using Picture = std::variant<frames::SGreyPicture, frames::SColourPicture>;

    [[nodiscard]] std::string FileName(std::uint64_t number) const;
    void SavePicture(const frames::SFrame& frame);
    [[nodiscard]] std::optional<Picture> Decode(const frames::SFrame& frame) const;
    [[nodiscard]] bool WritePicture(const std::string& file, Picture& picture) const;
    void Count(const frames::SFrame& frame, bool written);

    const std::string target;
    const bool asPng;
    const qmx::SGuid type;
    const std::uint32_t width;
    const std::optional<frames::Palette> palette;
    std::string extension;
    SSaveTotals sums;
};

inline constexpr const char* standardOutput = "-";

}  // namespace qmxhost
