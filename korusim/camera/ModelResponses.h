/// The responses of the modelled camera.
#pragma once

#include <string>
#include <string_view>

#include "CameraResponses.h"
#include "CameraSettings.h"

namespace korusim {

class CModelResponses : public CCameraResponses {
   public:
    explicit CModelResponses(const SCameraSettings& cameraSettings) : settings(cameraSettings) {}

    [[nodiscard]] SRtspReply Describe(const SRtspRequest& request,
                                      std::string_view path) const override;
    [[nodiscard]] int CheckSetup(std::string_view path, std::optional<double>& rate) const override;
    [[nodiscard]] bool NamesStream(std::string_view path,
                                   std::string_view setupPath) const override;
    [[nodiscard]] std::string SessionId(std::uint64_t random) const override;
    [[nodiscard]] SRtspResponse Format(const SRtspReply& reply,
                                       const SRtspRequest& request) const override;

   private:
    [[nodiscard]] std::string HeaderLine(std::string_view name, std::string_view value) const;

    SCameraSettings settings;
};

}  // namespace korusim
