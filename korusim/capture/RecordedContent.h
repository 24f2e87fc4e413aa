/// The content of a camera that comes back from a packet capture.
#pragma once

#include <filesystem>
#include <memory>

#include "CameraContent.h"
#include "CameraSettings.h"
#include "CaptureIndex.h"
#include "RecordedResponses.h"

namespace korusim {

class CRecordedContent : public CCameraContent {
   public:
    /// Reads the capture that the settings name and chooses the stream. Throws
    /// `std::runtime_error`, whose text names the file, if there is nothing to replay.
    explicit CRecordedContent(const SCameraSettings& cameraSettings);

    [[nodiscard]] std::unique_ptr<const CCameraResponses> MakeResponses() const override;
    [[nodiscard]] std::unique_ptr<CMediaStream> MakeStream(const SRtspSession& session,
                                                           double treeRate, TimePoint now) override;
    /// Returns the frame rate for the node tree: that of the recording, if it shows one, within the
    /// limits of the node tree.
    [[nodiscard]] double frameRate() const noexcept { return settings.rate; }
    /// Returns what is wrong with the end of the file, or an empty text.
    [[nodiscard]] const std::string& damage() const noexcept { return damageText; }

   private:
    SCameraSettings settings;
    std::shared_ptr<const SRecordedStream> stream;
    std::shared_ptr<const SRecordedResponses> responses;  // null if there is no description
    std::string damageText;
};

}  // namespace korusim
