#include "RecordedContent.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "CaptureFile.h"
#include "ModelResponses.h"
#include "Path.h"
#include "ReplayStream.h"

namespace korusim {
namespace {

/// Settings of a model that describes the format of a stream without a description.
SCameraSettings DescribeAs(SCameraSettings settings, const SVideoFormat& format) {
    settings.sizes = {format.size};
    settings.firstPayloadType = format.payloadType;
    settings.streams = format.encoding == EEncoding::Raw    ? EStreams::Raw
                       : format.encoding == EEncoding::Mjls ? EStreams::Mjls
                                                            : EStreams::Mjpg;
    return settings;
}

std::shared_ptr<const SRecordedResponses> ResponsesOf(const SCaptureContents& contents,
                                                      const SRecordedStream& stream) {
    auto responses = std::make_shared<SRecordedResponses>();
    responses->exchanges = stream.exchanges;
    const auto& others = contents.exchanges.at(stream.server);
    responses->exchanges.insert(responses->exchanges.end(), others.begin(), others.end());
    responses->session = stream.session;
    responses->recordedAddress = AddressText(stream.server.address);
    responses->ssrc = stream.flow.first().ssrc;
    return responses;
}

}  // namespace

CRecordedContent::CRecordedContent(const SCameraSettings& cameraSettings)
    : settings(cameraSettings) {
    try {
        CCaptureFile file(settings.capture);
        CCaptureIndex index;
        while (const auto frame = file.Next()) index.Add(*frame);
        damageText = file.damage();
        SCaptureContents contents = index.Finish();
        SRecordedStream& chosen = contents.streams[ChooseStream(contents, settings.captureStream)];
        if (IsDescribed(contents, chosen)) {
            responses = ResponsesOf(contents, chosen);
        } else {
            settings = DescribeAs(settings, *chosen.flow.format());
        }
        settings.rate = std::min(chosen.flow.FrameRate().value_or(settings.rate), maxFrameRate);
        stream = std::make_shared<const SRecordedStream>(std::move(chosen));
    } catch (const std::runtime_error& failure) {
        throw std::runtime_error("cannot replay " + platform::Utf8Text(settings.capture) + ": " +
                                 failure.what());
    }
}

std::unique_ptr<const CCameraResponses> CRecordedContent::MakeResponses() const {
    if (responses == nullptr) return std::make_unique<const CModelResponses>(settings);
    return std::make_unique<const CRecordedResponses>(responses, settings.address);
}

std::unique_ptr<CMediaStream> CRecordedContent::MakeStream(const SRtspSession&, double, TimePoint) {
    return std::make_unique<CReplayStream>(
        [file = settings.capture] { return std::make_unique<CCaptureFile>(file); }, stream,
        settings.captureLoop);
}

}  // namespace korusim
