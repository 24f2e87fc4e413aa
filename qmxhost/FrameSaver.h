/// Writes the frames of a stream where the user wants them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

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

/// Raises a `CFailure` for what can't be decoded or written; a stream without its frames is worth
/// nothing.
class CFrameSaver {
   public:
    /// Makes the folder.
    CFrameSaver(const SSaveOptions& options, const qmx::cam::IDevice::SFormat& format);

    void Save(const SFrame& frame);
    [[nodiscard]] std::uint64_t saved() const noexcept { return count; }

   private:
    [[nodiscard]] std::string FileName(std::uint64_t number) const;
    [[nodiscard]] bool WriteNative(const SFrame& frame) const;
    [[nodiscard]] bool WritePicture(const SFrame& frame) const;
    [[nodiscard]] bool WriteGrey(const SFrame& frame, SGreyPicture picture) const;

    const std::string target;
    const bool asPng;
    const qmx::SGuid type;
    const std::uint32_t width;
    const std::optional<Palette> palette;
    std::string extension;
    std::uint64_t count = 0;
};

inline constexpr const char* standardOutput = "-";

}  // namespace qmxhost
