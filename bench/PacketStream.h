/// The streams that the benchmarks send: a virtual camera's pictures as datagrams, ready to go.
#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "CameraSettings.h"
#include "Description.h"

namespace bench {

/// What is sent.
struct SStreamPlan {
    std::string name;  ///< for a person
    korusim::EEncoding encoding = korusim::EEncoding::Raw;
    korusim::SPictureSize size;
    std::uint32_t mtu = 1472;  ///< largest datagram, in bytes
    std::size_t pictures = 4;  ///< so many different ones, over and over

    [[nodiscard]] std::uint8_t payloadType() const noexcept;
    /// Bytes in front of what belongs into the frame, in most datagrams.
    [[nodiscard]] std::size_t headerBytes() const noexcept;
    /// The name that `CRtpReceiver::Start` knows the payload kind by.
    [[nodiscard]] const char* streamName() const noexcept;
};

/// The streams that all comparisons use.
[[nodiscard]] std::vector<SStreamPlan> ComparedStreams();

/// The word "length" of a line header: these cameras count pixels, RFC 4175 counts bytes. Nothing
/// else differs between the two, so that with `Bytes` other receivers take the same datagrams.
enum class ELineLength { Pixels, Bytes };

class CPacketStream {
   public:
    explicit CPacketStream(const SStreamPlan& plan, ELineLength unit = ELineLength::Pixels);

    /// Datagrams of the next frame in order, with sequence numbers and a timestamp that go on from
    /// the frame before. Good until the next call.
    [[nodiscard]] std::span<iovec> NextFrame();
    /// Size in bytes of the largest datagram.
    [[nodiscard]] std::size_t maxPacketBytes() const noexcept { return largest; }
    /// Size in bytes of the largest frame, with its headers.
    [[nodiscard]] std::size_t maxFrameBytes() const noexcept { return largestFrame; }
    /// Datagrams of a frame, as a mean.
    [[nodiscard]] double packetsPerFrame() const noexcept;

   private:
    struct SFrame {
        std::vector<std::vector<std::uint8_t>> packets;
        std::vector<iovec> views;
    };
    std::vector<SFrame> frames;
    std::size_t next = 0;
    std::uint32_t sequence = 0;
    std::uint32_t timestamp = 0;
    std::size_t largest = 0;
    std::size_t largestFrame = 0;
};

}  // namespace bench
