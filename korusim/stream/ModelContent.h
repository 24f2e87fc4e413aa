/// The content of a modelled camera: pictures that are coded as its settings say.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "CameraContent.h"
#include "CameraSettings.h"
#include "PictureSource.h"

namespace korusim {

class CModelContent : public CCameraContent {
   public:
    /// Without `images` the camera draws its pictures. Otherwise they must have the only size of
    /// the settings.
    CModelContent(const SCameraSettings& cameraSettings,
                  std::shared_ptr<const CPictureSource> images);

    [[nodiscard]] std::unique_ptr<const CCameraResponses> MakeResponses() const override;
    [[nodiscard]] std::unique_ptr<CMediaStream> MakeStream(const SRtspSession& session,
                                                           double treeRate, TimePoint now) override;

   private:
    [[nodiscard]] std::shared_ptr<const CPictureSource> PicturesFor(SPictureSize size);

    SCameraSettings settings;
    std::vector<std::pair<SPictureSize, std::shared_ptr<const CPictureSource>>> pictures;
};

}  // namespace korusim
