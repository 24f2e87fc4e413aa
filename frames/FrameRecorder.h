/// Records frames as they come from a camera.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "FrameQueue.h"
#include "Recording.h"
#include "qmx.h"

namespace frames {

/// The stream that is recorded.
struct SRecordedStream {
    std::string camera;  ///< address
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    qmx::SGuid pixelType{};
};

enum class ERecorded {
    Done,
    Empty,        ///< the frame has no bytes, and was skipped
    Undecodable,  ///< the frame was skipped
    Failed,       ///< the file cannot be written; it ends with the frame before
};

/// A recording of decoded frames: the values of grey pictures, and the colours of JPEG frames. Each
/// page describes its frame by a JSON object with the keys frame, utc, elapsed, camera, format.
/// Used by one thread.
class CFrameRecorder {
   public:
    /// Creates the file, or empties an existing one. On failure `error` returns the reason.
    CFrameRecorder(const std::filesystem::path& file, SRecordedStream recordedStream);
    /// Removes the file if it contains no frame.
    ~CFrameRecorder();
    CFrameRecorder(const CFrameRecorder&) = delete;
    CFrameRecorder& operator=(const CFrameRecorder&) = delete;

    [[nodiscard]] ERecorded Add(const SFrame& frame);
    [[nodiscard]] std::uint64_t frameCount() const noexcept { return recording.pages(); }
    /// Returns the reason of the first failure; empty if there was none.
    [[nodiscard]] const std::string& error() const noexcept { return recording.error(); }

   private:
    const std::filesystem::path path;
    const SRecordedStream stream;
    CRecording recording;
};

}  // namespace frames
