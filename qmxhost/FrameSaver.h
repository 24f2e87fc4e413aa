/// Writes the frames of a stream where the user wants them.
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
    bool asPng = false;   ///< else the bytes as they came
    std::string palette;  ///< for PNG; empty for grey
};

/// What became of the frames that were to be saved.
struct SSaveTotals {
    std::uint64_t saved = 0;
    std::uint64_t undecodable = 0;  ///< no picture could be made of them
    std::uint64_t empty = 0;        ///< no bytes to make a picture of
};

class CFrameSaver {
   public:
    /// Makes the folder.
    CFrameSaver(const SSaveOptions& options, const qmx::cam::IDevice::SFormat& format);

    /// Saves a frame. Passes over one that has no picture, since the next one may be good; throws a
    /// `CFailure` when it can't be written, since the next one can't either.
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
