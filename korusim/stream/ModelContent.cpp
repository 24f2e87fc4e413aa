#include "ModelContent.h"

#include "Description.h"
#include "ModelResponses.h"
#include "Scene.h"
#include "VideoStream.h"

namespace korusim {

CModelContent::CModelContent(const SCameraSettings& cameraSettings,
                             std::shared_ptr<const CPictureSource> images)
    : settings(cameraSettings) {
    if (images) pictures.emplace_back(settings.sizes.front(), std::move(images));
}

std::unique_ptr<const CCameraResponses> CModelContent::MakeResponses() const {
    return std::make_unique<const CModelResponses>(settings);
}

std::unique_ptr<CMediaStream> CModelContent::MakeStream(const SRtspSession& session,
                                                        double treeRate, TimePoint now) {
    const SVideoFormat format = FormatToSetUp(settings, session.setupPath).value();
    return std::make_unique<CVideoStream>(settings, format, session.rate.value_or(treeRate),
                                          PicturesFor(format.size),
                                          CameraSeed(settings) + session.serial, now);
}

std::shared_ptr<const CPictureSource> CModelContent::PicturesFor(SPictureSize size) {
    for (const auto& [known, source] : pictures) {
        if (known == size) return source;
    }
    return pictures.emplace_back(size, std::make_shared<const CScene>(size, CameraSeed(settings)))
        .second;
}

}  // namespace korusim
