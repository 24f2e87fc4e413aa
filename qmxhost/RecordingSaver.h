/// Saves all frames in one recording.
#pragma once

#include <string>

#include "FrameQueue.h"
#include "Recording.h"
#include "SaveOptions.h"
#include "qmxcam.h"

namespace qmxhost {

/// Writes each frame as a page of a BigTIFF file: 16-bit grey with the exact values, or 8-bit RGB
/// for JPEG frames. The description of a page is a JSON object with number, arrival in UTC and in
/// seconds since the first frame, camera and format.
class CRecordingSaver {
   public:
    /// Creates the file. Throws a `CFailure` if that fails, or if it exists and must not be
    /// overwritten.
    CRecordingSaver(const SSaveOptions& options, const qmx::cam::IDevice::SFormat& format,
                    const std::string& cameraAddress);
    /// Removes the file if it contains no page.
    ~CRecordingSaver();
    CRecordingSaver(const CRecordingSaver&) = delete;
    CRecordingSaver& operator=(const CRecordingSaver&) = delete;

    [[nodiscard]] ESaved Save(const frames::SFrame& frame);

   private:
    const std::string name;
    const qmx::cam::IDevice::SFormat format;
    const std::string camera;
    frames::CRecording recording;
};

}  // namespace qmxhost
