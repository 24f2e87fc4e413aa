/// The RTP packets (RFC 3550) of one captured stream, seen as a whole.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "Description.h"

namespace korusim {

/// The fields of an RTP header.
struct SRtpHeader {
    std::uint8_t payloadType = 0;
    bool marker = false;
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    std::uint32_t ssrc = 0;
    std::span<const std::uint8_t> payload;  ///< without contributing sources, extension and padding
};
/// Returns nothing if the datagram is not RTP of version 2, or if it is RTCP.
[[nodiscard]] std::optional<SRtpHeader> ReadRtpHeader(std::span<const std::uint8_t> datagram);

/// Returns the format of a payload by its content: the first packet of a JPEG picture (RFC 2435) or
/// of a JPEG-LS one, or any packet of a raw picture. The height of a raw picture is what this
/// packet shows of it: the number of its last line, plus one.
[[nodiscard]] std::optional<SVideoFormat> GuessFormat(const SRtpHeader& packet);

/// Numbers and times that a replay of the flow needs.
class CRtpFlow {
   public:
    /// Adds a datagram that arrived at a time in nanoseconds. `cut`: not all of it was captured.
    void Add(std::int64_t time, std::span<const std::uint8_t> datagram, bool cut);

    [[nodiscard]] std::uint64_t packets() const noexcept { return packetCount; }
    [[nodiscard]] std::uint64_t cutPackets() const noexcept { return cutCount; }
    [[nodiscard]] std::uint64_t otherDatagrams() const noexcept { return otherCount; }
    [[nodiscard]] std::size_t maxDatagramBytes() const noexcept { return maxBytes; }
    [[nodiscard]] std::int64_t firstTime() const noexcept { return begin; }
    [[nodiscard]] std::int64_t duration() const noexcept { return end - begin; }
    /// Returns the header fields of the first packet.
    [[nodiscard]] const SRtpHeader& first() const noexcept { return firstPacket; }
    [[nodiscard]] const std::optional<SVideoFormat>& format() const noexcept { return guessed; }
    [[nodiscard]] bool ordered() const noexcept { return inOrder; }

    /// What a repetition adds to the fields of the packets so that they go on, one frame time after
    /// the last frame.
    struct SStep {
        std::int64_t nanoseconds;
        std::uint32_t sequence;
        std::uint32_t timestamp;
        std::uint32_t packets;
        std::uint32_t octets;
    };
    [[nodiscard]] SStep Step() const;
    /// Returns the average number of frames per second to three significant digits, because a
    /// capture's times are no more exact than that; nothing if there are fewer than two frames.
    [[nodiscard]] std::optional<double> FrameRate() const;

   private:
    std::uint64_t packetCount = 0;
    std::uint64_t cutCount = 0;
    std::uint64_t otherCount = 0;
    std::uint64_t octets = 0;  // of payload
    std::size_t maxBytes = 0;
    std::int64_t begin = 0;
    std::int64_t end = 0;
    std::int64_t lastFrame = 0;  // when the latest frame began
    std::uint64_t frames = 0;
    SRtpHeader firstPacket;  // its payload is empty
    // Unwrapped, so that differences over the whole flow make sense.
    std::int64_t lastSequence = 0;
    std::int64_t minSequence = 0;
    std::int64_t maxSequence = 0;
    std::int64_t lastTimestamp = 0;
    std::int64_t maxTimestamp = 0;
    bool inOrder = true;  // without gaps, repetitions and late packets
    std::optional<SVideoFormat> guessed;
};

}  // namespace korusim
