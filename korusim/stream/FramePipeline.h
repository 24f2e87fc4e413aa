/// Turns pictures into the datagrams of one frame at a time, in the encoding of the stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <variant>
#include <vector>

#include "CameraSettings.h"
#include "Description.h"
#include "JpegEncoder.h"
#include "JpegLsEncoder.h"
#include "JpegPacketizer.h"
#include "MjlsPacketizer.h"
#include "PictureSource.h"
#include "RawPacketizer.h"

namespace korusim {

/// The coder of an uncompressed picture, which only stamps it.
struct SRawCoder {
    [[nodiscard]] std::span<const std::uint8_t> Code(std::span<std::uint16_t> picture,
                                                     std::uint32_t number);
};

/// Cannot be moved, because frames point into it. One thread may load it while another one owns it.
class CFramePipeline {
   public:
    /// The pictures must have the size of the format.
    CFramePipeline(const SCameraSettings& settings, const SVideoFormat& format,
                   std::shared_ptr<const CPictureSource> pictures);
    CFramePipeline(const CFramePipeline&) = delete;
    CFramePipeline& operator=(const CFramePipeline&) = delete;

    /// Draws or reads a picture, stamps and encodes it. JPEG-LS of 640 by 480 pixels takes about 10
    /// ms, too long for a thread that has packets to send.
    void Load(std::uint32_t number, double seconds);
    /// Returns the number of the loaded frame.
    [[nodiscard]] std::optional<std::uint32_t> number() const noexcept { return frameNumber; }
    [[nodiscard]] std::size_t packets() const noexcept { return framePackets; }
    [[nodiscard]] std::size_t maxPacketBytes() const;
    /// Writes packet `index` of the loaded frame into a buffer of `maxPacketBytes` and returns its
    /// size.
    [[nodiscard]] std::size_t Build(std::size_t index, const SPacketFields& fields,
                                    std::span<std::uint8_t> to) const;

   private:
    template <class Coder, class Packetizer>
    struct SStages {
        Coder coder;
        Packetizer packetizer;
    };
    using Raw = SStages<SRawCoder, CRawPacketizer>;
    using Mjls = SStages<CJpegLsEncoder, CMjlsPacketizer>;
    using Jpeg = SStages<CJpegEncoder, CJpegPacketizer>;
    using Stages = std::variant<Raw, Mjls, Jpeg>;

    [[nodiscard]] static Stages MakeStages(const SCameraSettings& settings,
                                           const SVideoFormat& format, SGreyRange range);

    std::shared_ptr<const CPictureSource> source;
    std::vector<std::uint16_t> picture;
    Stages stages;
    std::optional<std::uint32_t> frameNumber;
    std::span<const std::uint8_t> frame;  // encoded, as the packets contain it
    std::size_t framePackets = 0;
};

}  // namespace korusim
