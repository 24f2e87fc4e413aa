/// From the scene to datagrams, by the encoding of the stream: one frame at a time.
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
#include "RawPacketizer.h"
#include "Scene.h"

namespace korusim {

/// An uncompressed picture only gets its stamp.
struct SRawCoder {
    [[nodiscard]] std::span<const std::uint8_t> Code(std::span<std::uint16_t> picture,
                                                     std::uint32_t number);
};

/// Stays where it is: frames point into it, and one thread may load it while another has it at
/// hand.
class CFramePipeline {
   public:
    /// `scene` must have the format's size.
    CFramePipeline(const SCameraSettings& settings, const SVideoFormat& format,
                   std::shared_ptr<const CScene> scene);
    CFramePipeline(const CFramePipeline&) = delete;
    CFramePipeline& operator=(const CFramePipeline&) = delete;

    /// Draws, stamps and codes a frame. Some 10 ms for JPEG-LS of 640 by 480 pixels, which is too
    /// long for a thread that has packets to send meanwhile.
    void Load(std::uint32_t number, double seconds);
    /// Number of the loaded frame.
    [[nodiscard]] std::optional<std::uint32_t> number() const noexcept { return frameNumber; }
    [[nodiscard]] std::size_t packets() const noexcept { return framePackets; }
    [[nodiscard]] std::size_t maxPacketBytes() const;
    /// Writes packet `index` of the loaded frame into a buffer of `maxPacketBytes`; gives its
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
                                           const SVideoFormat& format);

    std::shared_ptr<const CScene> scene;
    std::vector<std::uint16_t> picture;
    Stages stages;
    std::optional<std::uint32_t> frameNumber;
    std::span<const std::uint8_t> frame;  // coded, as the packets take it
    std::size_t framePackets = 0;
};

}  // namespace korusim
