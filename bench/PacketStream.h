/// The streams that the benchmarks send: a virtual camera's pictures as finished datagrams.
#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "CameraSettings.h"
#include "Description.h"

namespace bench {

/// The parameters of a stream.
struct SStreamPlan {
    std::string name;  ///< shown in the tables
    korusim::EEncoding encoding = korusim::EEncoding::Raw;
    korusim::SPictureSize size;
    std::uint32_t mtu = 1472;  ///< largest datagram, in bytes
    std::size_t pictures = 4;  ///< number of different pictures, which are repeated

    [[nodiscard]] std::uint8_t payloadType() const noexcept;
    /// Returns the number of bytes before the frame data in most datagrams.
    [[nodiscard]] std::size_t headerBytes() const noexcept;
    /// Returns the name of the payload kind for `CRtpReceiver::Start`.
    [[nodiscard]] const char* streamName() const noexcept;
};

/// Returns the streams that all comparisons use.
[[nodiscard]] std::vector<SStreamPlan> ComparedStreams();

/// The unit of the length field in a line header: these cameras count pixels, RFC 4175 counts
/// bytes. Nothing else differs, so that with `Bytes` other receivers accept the same datagrams.
enum class ELineLength { Pixels, Bytes };

class CPacketStream {
   public:
    explicit CPacketStream(const SStreamPlan& plan, ELineLength unit = ELineLength::Pixels);

    /// Returns the datagrams of the next frame in order, with sequence numbers and a timestamp that
    /// continue those of the previous frame. Valid until the next call.
    [[nodiscard]] std::span<iovec> NextFrame();
    /// Returns the size of the largest datagram in bytes.
    [[nodiscard]] std::size_t maxPacketBytes() const noexcept { return largest; }
    /// Returns the size of the largest frame in bytes, including its headers.
    [[nodiscard]] std::size_t maxFrameBytes() const noexcept { return largestFrame; }
    /// Returns the mean number of datagrams per frame.
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
