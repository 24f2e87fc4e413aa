/// What a camera serves: the model of a camera, or one that was recorded.
#pragma once

#include <memory>

#include "CameraResponses.h"
#include "MediaStream.h"
#include "RtspServer.h"

namespace korusim {

class CCameraContent {
   public:
    virtual ~CCameraContent() = default;

    [[nodiscard]] virtual std::unique_ptr<const CCameraResponses> MakeResponses() const = 0;
    /// Returns the stream of a session. `treeRate` is the frame rate that the node tree contains.
    [[nodiscard]] virtual std::unique_ptr<CMediaStream> MakeStream(const SRtspSession& session,
                                                                   double treeRate,
                                                                   TimePoint now) = 0;
};

}  // namespace korusim
