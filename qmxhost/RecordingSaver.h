/// Saves all frames in one recording.
#pragma once

#include <filesystem>
#include <string>

#include "FrameRecorder.h"
#include "SaveOptions.h"
#include "qmxcam.h"

namespace qmxhost {

/// Writes each frame as a page of a BigTIFF file, which is removed again if it gets none.
class CRecordingSaver {
   public:
    /// Creates the file. Throws a `CFailure` if that fails, or if it exists and must not be
    /// overwritten.
    CRecordingSaver(const SSaveOptions& options, const qmx::cam::IDevice::SFormat& format,
                    const std::string& cameraAddress);

    [[nodiscard]] ESaved Save(const frames::SFrame& frame);

   private:
    const std::filesystem::path path;
    frames::CFrameRecorder recorder;
};

}  // namespace qmxhost
