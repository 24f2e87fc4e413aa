#include "VideoStream.h"

#include <bit>
#include <cmath>
#include <random>
#include <utility>

#include "FrameStamp.h"

namespace korusim {
namespace {

static_assert(std::endian::native == std::endian::little,
              "a picture's bytes in memory are those on the wire");

constexpr double rtpTicksPerSecond = 90'000;

std::span<std::uint8_t> BytesOf(std::span<std::uint16_t> picture) {
    return {reinterpret_cast<std::uint8_t*>(picture.data()), picture.size_bytes()};
}

}  // namespace

CVideoStream::CVideoStream(const SCameraSettings& settings, const SVideoFormat& format, double rate,
                           std::shared_ptr<const CScene> pictureScene, std::uint64_t seed,
                           TimePoint now)
    : scene(std::move(pictureScene)),
      packetizer(format.size, settings.mtu),
      pacer(rate),
      impairments(settings, seed),
      epoch(now),
      picture(std::size_t{format.size.width} * format.size.height),
      datagram(packetizer.maxPacketBytes()) {
    std::mt19937_64 random(seed);
    fields.payloadType = format.payloadType;
    fields.ssrc = static_cast<std::uint32_t>(random());
    fields.sequence = static_cast<std::uint32_t>(random() & 0xFFFF);
    firstTimestamp = static_cast<std::uint32_t>(random());
}

void CVideoStream::Play(TimePoint now) { pacer.Start(now); }

void CVideoStream::Pause(const PacketSink& sink) { impairments.Flush(sink); }

void CVideoStream::SetRate(double framesPerSecond, TimePoint now) {
    pacer.SetRate(framesPerSecond, now);
}

std::uint32_t CVideoStream::TimestampAt(TimePoint when) const {
    const double seconds = std::chrono::duration<double>(when - epoch).count();
    const auto ticks = std::llround(seconds * rtpTicksPerSecond);
    return firstTimestamp + static_cast<std::uint32_t>(ticks);
}

void CVideoStream::BeginFrame(TimePoint scheduled) {
    const double seconds = std::chrono::duration<double>(scheduled - epoch).count();
    // A frame that a pause cut off gives its number to the next one: a receiver never had it.
    scene->Render(seconds, counts.frames, picture);
    WriteStamp(BytesOf(picture), static_cast<std::uint32_t>(counts.frames));
    nextPacket = 0;
    fields.timestamp = TimestampAt(scheduled);
    pacer.Load(packetizer.packetsPerFrame());
}

void CVideoStream::Advance(TimePoint now, const PacketSink& sink) {
    if (const auto scheduled = pacer.Begin(now)) BeginFrame(*scheduled);
    for (std::size_t left = pacer.Take(now); left > 0; --left) {
        const std::size_t bytes =
            packetizer.Build(BytesOf(picture), nextPacket++, fields, datagram);
        ++fields.sequence;
        ++counts.packets;
        counts.octets += bytes - rtpHeaderBytes;
        impairments.Pass(std::span(datagram).first(bytes), sink);
        if (nextPacket == packetizer.packetsPerFrame()) ++counts.frames;
    }
}

SSenderReport CVideoStream::Report(TimePoint now, std::uint64_t ntpNow) const {
    return {fields.ssrc, ntpNow, TimestampAt(now), static_cast<std::uint32_t>(counts.packets),
            static_cast<std::uint32_t>(counts.octets)};
}

}  // namespace korusim
