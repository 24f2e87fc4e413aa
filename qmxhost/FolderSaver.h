/// Saves each frame in a separate file.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "FrameQueue.h"
#include "Palette.h"
#include "SaveOptions.h"
#include "qmxcam.h"

namespace qmxhost {

/// Writes frames into a folder as "frame-000001" and so on, unchanged or as PNG, and a line for
/// each into "index.jsonl": number, file, arrival in UTC and in seconds since the first frame,
/// length and type.
class CFolderSaver {
   public:
    /// Creates the folder. Throws a `CFailure` if it contains frames already, unless they may be
    /// overwritten; then it removes them.
    CFolderSaver(const SSaveOptions& options, const qmx::cam::IDevice::SFormat& format);

    [[nodiscard]] ESaved Save(const frames::SFrame& frame);

   private:
    struct SClose {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    [[nodiscard]] bool WritePicture(const std::filesystem::path& file, const frames::SFrame& frame,
                                    ESaved& result) const;
    [[nodiscard]] bool WriteIndex(const std::string& name, const frames::SFrame& frame);

    const std::filesystem::path folder;
    const ESaveAs as;
    const qmx::SGuid type;
    const std::uint32_t width;
    const std::uint32_t height;
    const std::optional<frames::Palette> palette;
    const std::string extension;
    std::unique_ptr<std::FILE, SClose> index;  // opened with the first frame
};

}  // namespace qmxhost
