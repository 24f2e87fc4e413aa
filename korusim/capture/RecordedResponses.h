/// The RTSP responses of a recorded camera.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "CameraResponses.h"
#include "RtspMessages.h"

namespace korusim {

/// What a camera has responded in a capture.
struct SRecordedResponses {
    std::vector<SRtspExchange> exchanges;  ///< of the session, with SETUP first, and of its server
    std::string session;                   ///< identifier
    std::string recordedAddress;           ///< of the camera, dotted
    std::uint32_t ssrc = 0;                ///< of the stream
};

/// Responds as the camera did: with its status lines, headers, their order and spelling, its
/// descriptions and its session. Only what has to be different is replaced: sequence numbers,
/// ports, and the address of the camera in URLs. A request that the capture does not contain gets a
/// plain response.
class CRecordedResponses : public CCameraResponses {
   public:
    /// `address` is the dotted address at which the camera comes back.
    CRecordedResponses(std::shared_ptr<const SRecordedResponses> recordedResponses,
                       std::string address);

    [[nodiscard]] SRtspReply Describe(const SRtspRequest& request,
                                      std::string_view path) const override;
    [[nodiscard]] int CheckSetup(std::string_view path, std::optional<double>& rate) const override;
    [[nodiscard]] bool NamesStream(std::string_view path,
                                   std::string_view setupPath) const override;
    [[nodiscard]] std::string SessionId(std::uint64_t random) const override;
    [[nodiscard]] SRtspResponse Format(const SRtspReply& reply,
                                       const SRtspRequest& request) const override;

   private:
    [[nodiscard]] const SRtspExchange* Find(std::string_view method, std::string_view path) const;
    [[nodiscard]] SRtspResponse FormatRecorded(const SRtspExchange& exchange,
                                               const SRtspReply& reply,
                                               const SRtspRequest& request) const;
    [[nodiscard]] SRtspResponse FormatPlain(const SRtspReply& reply,
                                            const SRtspRequest& request) const;
    [[nodiscard]] std::string Transport(std::string_view own, std::string_view chosen) const;
    /// Replaces the recorded address of the camera in URLs.
    [[nodiscard]] std::string Readdress(std::string_view text, std::string_view authority) const;

    std::shared_ptr<const SRecordedResponses> recorded;
    std::string ownAddress;
    bool lowerCase;  // header names
};

}  // namespace korusim
