#include "FrameChecker.h"

#include "FrameDecoders.h"
#include "FrameStamp.h"
#include "PixelTypeNames.h"

namespace frames {
namespace {

using framestamp::EStamp;
using framestamp::SStamp;

SStamp JpegLsStamp(std::span<const std::uint8_t> frame) {
    const auto raw = DecodeJpegLs(frame);
    return raw ? framestamp::ReadStamp(raw->bytes) : SStamp{};
}

SStamp JpegStamp(std::span<const std::uint8_t> frame) {
    const auto picture = DecodeJpeg(frame, EJpegForm::Luminance);
    if (!picture || !picture->intact) return {EStamp::Damaged, 0};
    return framestamp::ReadBlockStamp({picture->samples, picture->width});
}

SStamp StampOf(const qmx::SGuid& type, std::span<const std::uint8_t> frame) {
    if (type == jlsType) return JpegLsStamp(frame);
    if (type == jpegType) return JpegStamp(frame);
    return framestamp::ReadStamp(frame);
}

}  // namespace

bool CFrameChecker::CanCheck(const qmx::SGuid& pixelType) {
    return pixelType == rawType || pixelType == jlsType || pixelType == jpegType;
}

void CFrameChecker::Check(std::span<const std::uint8_t> frame, std::uint64_t arrival) {
    const SStamp stamp = StampOf(type, frame);
    if (stamp.state != EStamp::Good) {
        ++sums.damaged;
        return;
    }
    ++sums.good;
    if (last) {
        // Modulo 2^32, because the numbers wrap in a long run.
        const auto step = static_cast<std::int32_t>(stamp.number - last->number);
        const std::uint64_t delivered = arrival - last->arrival;
        if (step < 0) {
            ++sums.backwards;
        } else if (step == 0) {
            ++sums.repeated;
        } else if (static_cast<std::uint64_t>(step) > delivered) {
            sums.missing += static_cast<std::uint64_t>(step) - delivered;
        }
    }
    last = SGoodFrame{stamp.number, arrival};
}

}  // namespace frames
