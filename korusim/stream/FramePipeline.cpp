#include "FramePipeline.h"

#include <utility>

#include "FrameStamp.h"

namespace korusim {

std::span<const std::uint8_t> SRawCoder::Code(std::span<std::uint16_t> picture,
                                              std::uint32_t number) {
    framestamp::WriteStamp(framestamp::BytesOf(picture), number);
    return framestamp::BytesOf(picture);
}

CFramePipeline::CFramePipeline(const SCameraSettings& settings, const SVideoFormat& format,
                               std::shared_ptr<const CPictureSource> pictures)
    : source(std::move(pictures)),
      picture(std::size_t{format.size.width} * format.size.height),
      stages(MakeStages(settings, format, source->range())) {}

CFramePipeline::Stages CFramePipeline::MakeStages(const SCameraSettings& settings,
                                                  const SVideoFormat& format, SGreyRange range) {
    switch (format.encoding) {
        case EEncoding::Mjls:
            return Mjls{CJpegLsEncoder(format.size), CMjlsPacketizer(settings.mtu)};
        case EEncoding::Jpeg:
            return Jpeg{CJpegEncoder(format.size, settings.jpeg, range),
                        CJpegPacketizer(format.size, settings.jpeg, settings.mtu)};
        case EEncoding::Raw:
            break;
    }
    return Raw{{}, CRawPacketizer(format.size, settings.mtu)};
}

void CFramePipeline::Load(std::uint32_t number, double seconds) {
    source->Render(seconds, number, picture);
    std::visit(
        [&](auto& way) {
            frame = way.coder.Code(picture, number);
            framePackets = way.packetizer.CountPackets(frame);
        },
        stages);
    frameNumber = number;
}

std::size_t CFramePipeline::maxPacketBytes() const {
    return std::visit([](const auto& way) { return way.packetizer.maxPacketBytes(); }, stages);
}

std::size_t CFramePipeline::Build(std::size_t index, const SPacketFields& fields,
                                  std::span<std::uint8_t> to) const {
    return std::visit(
        [&](const auto& way) { return way.packetizer.Build(frame, index, fields, to); }, stages);
}

}  // namespace korusim
