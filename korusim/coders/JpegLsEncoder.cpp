#include "JpegLsEncoder.h"

#include <charls/charls.h>

#include "BigEndian.h"
#include "FrameStamp.h"

namespace korusim {
namespace {

constexpr std::size_t headBytes = 4;
/// Counts have 14 bits, but the stamp uses all 16.
constexpr std::int32_t bitsPerPixel = 16;
/// Room for the worst picture: a pixel is coded in at most 64 bits (T.87, A.2.1), a bit is added
/// after each byte FF, and the headers are shorter than this.
constexpr std::size_t maxBytesPerPixel = 9;
constexpr std::size_t maxHeaderBytes = 1024;

}  // namespace

std::span<const std::uint8_t> CJpegLsEncoder::Code(std::span<std::uint16_t> picture,
                                                   std::uint32_t number) {
    framestamp::WriteStamp(framestamp::BytesOf(picture), number);
    // An encoder object can encode only one picture.
    charls::jpegls_encoder encoder;
    encoder.frame_info({pictureSize.width, pictureSize.height, bitsPerPixel, 1});
    frame.resize(headBytes + maxHeaderBytes + maxBytesPerPixel * picture.size());
    bigendian::Put32(frame.data(), number);
    encoder.destination(&frame[headBytes], frame.size() - headBytes);
    const std::size_t coded = encoder.encode(picture.data(), picture.size_bytes());
    return std::span(frame).first(headBytes + coded);
}

}  // namespace korusim
