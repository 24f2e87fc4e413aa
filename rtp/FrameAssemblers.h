/// From packets to whole frames. Pure: takes parsed packets, gives finished frames, knows no
/// socket, no thread and no host.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>

#include "JpegHeaders.h"
#include "RtpPacket.h"

namespace qmx::cam {

/// The payload kinds of the cameras, by the numbers that the receiver keeps.
enum class EStreamType : std::uint32_t {
    None = 0,
    Zraw = 1,  ///< uncompressed 16-bit lines behind RFC 4175 payload headers
    Mjls = 2,  ///< JPEG-LS images cut into pieces
    Mjpg = 3,  ///< JPEG by RFC 2435
};

struct SJpegFragment;

/// Assembles the frames of one run. Lives on the receive thread.
///
/// The loss policy is all in the gate: no reordering, no repair, no partial frame. One missing or
/// late packet costs the rest of its frame, and nothing comes before the next frame start.
///
/// | needSync | timestamp | packet is              |
/// | true     | any       | a frame start          | begins a frame
/// | true     | any       | no frame start         | dropped
/// | false    | the same  | the next in sequence   | accepted
/// | false    | the same  | another                | dropped, needSync
/// | false    | another   | a frame start          | begins a frame, the open one is abandoned
/// | false    | another   | no frame start         | dropped, needSync
class CFrameAssembler {
   public:
    explicit CFrameAssembler(EStreamType type) noexcept : streamType(type) {}

    /// Takes one packet; gives the finished frame if it ended one. The frame is valid until the
    /// next call; it may be empty.
    [[nodiscard]] std::optional<std::span<const std::uint8_t>> Take(
        const SRtpPacket& packet) noexcept;

   private:
    using Frame = std::optional<std::span<const std::uint8_t>>;
    enum class EVerdict { Drop, Accept, Begin };

    Frame TakeZraw(const SRtpPacket& packet) noexcept;
    Frame TakeMjls(const SRtpPacket& packet) noexcept;
    Frame TakeMjpg(const SRtpPacket& packet) noexcept;
    bool BuildJpegHeader(const SJpegFragment& fragment) noexcept;
    EVerdict PassGate(const SRtpPacket& packet, bool frameStart) noexcept;
    bool GrowTo(std::uint32_t required) noexcept;
    Frame Finish(std::uint32_t length) noexcept;
    Frame GiveUp() noexcept;

    struct SFree {
        void operator()(std::uint8_t* memory) const noexcept { std::free(memory); }
    };

    const EStreamType streamType;
    bool needSync = true;              // no frame is in assembly
    std::uint32_t frameTimestamp = 0;  // of the frame in assembly
    std::uint16_t prevSeq = 0;         // of the last accepted packet
    std::unique_ptr<std::uint8_t[], SFree> frameBuffer;
    std::uint32_t frameCapacity = 0;  // bytes; never shrinks
    std::uint32_t frameFill = 0;      // bytes of the frame so far, of the compressed kinds
    std::uint32_t headerLength = 0;   // bytes of the JPEG header made for the frame in assembly
    QuantTable lqt{};
    QuantTable cqt{};
};

}  // namespace qmx::cam
