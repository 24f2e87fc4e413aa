#include "PacketStream.h"

#include <algorithm>
#include <memory>
#include <numeric>

#include "BigEndian.h"
#include "FramePipeline.h"
#include "RtpHeader.h"
#include "Scene.h"

namespace bench {
namespace {

using korusim::EEncoding;

/// One tick of a 30 Hz camera on RTP's 90 kHz clock.
constexpr std::uint32_t timestampStep = 3000;
constexpr std::size_t lineHeaderBytes = 6;

void CountLinesInBytes(std::span<std::uint8_t> packet) {
    constexpr std::size_t headersAt = korusim::rtpHeaderBytes + 2;
    for (std::size_t at = headersAt;; at += lineHeaderBytes) {
        const unsigned pixels = packet[at] * 256U + packet[at + 1];
        bigendian::Put16(&packet[at], 2 * pixels);
        if ((packet[at + 4] & 0x80) == 0) return;
    }
}

}  // namespace

std::uint8_t SStreamPlan::payloadType() const noexcept {
    constexpr std::uint8_t staticJpeg = 26;
    constexpr std::uint8_t firstDynamic = 96;
    return encoding == EEncoding::Jpeg ? staticJpeg : firstDynamic;
}

std::size_t SStreamPlan::headerBytes() const noexcept {
    if (encoding == EEncoding::Mjls) return korusim::rtpHeaderBytes;
    if (encoding == EEncoding::Jpeg) return korusim::rtpHeaderBytes + 8;
    const std::size_t line = lineHeaderBytes + 2 * std::size_t{size.width};
    constexpr std::size_t fixed = korusim::rtpHeaderBytes + 2;
    const std::size_t lines = std::clamp<std::size_t>((mtu - fixed) / line, 1, 5);
    return fixed + lines * lineHeaderBytes;
}

const char* SStreamPlan::streamName() const noexcept {
    if (encoding == EEncoding::Raw) return "ZRAW";
    return encoding == EEncoding::Mjls ? "MJLS" : "MJPG";
}

std::vector<SStreamPlan> ComparedStreams() {
    return {{"raw 640x512, 1 line", EEncoding::Raw, {640, 512}},
            {"raw 640x512, 5 lines", EEncoding::Raw, {640, 512}, 6500},
            {"raw 1024x768, 1 line", EEncoding::Raw, {1024, 768}},
            {"JPEG-LS 640x480", EEncoding::Mjls, {640, 480}},
            {"JPEG 640x480", EEncoding::Jpeg, {640, 480}}};
}

CPacketStream::CPacketStream(const SStreamPlan& plan, ELineLength unit) {
    korusim::SCameraSettings settings;
    settings.mtu = plan.mtu;
    settings.sizes = {plan.size};
    const auto scene = std::make_shared<const korusim::CScene>(plan.size, settings.seed);
    korusim::CFramePipeline pipeline(settings, {plan.encoding, plan.payloadType(), plan.size},
                                     scene);
    frames.resize(plan.pictures);
    for (std::uint32_t number = 0; SFrame & frame : frames) {
        pipeline.Load(number, number / 30.0);
        ++number;
        frame.packets.resize(pipeline.packets());
        std::size_t frameBytes = 0;
        for (std::size_t i = 0; i < frame.packets.size(); ++i) {
            auto& packet = frame.packets[i];
            packet.resize(pipeline.maxPacketBytes());
            packet.resize(pipeline.Build(i, {plan.payloadType(), 0, 0, 1}, packet));
            if (plan.encoding == EEncoding::Raw && unit == ELineLength::Bytes) {
                CountLinesInBytes(packet);
            }
            frame.views.push_back({packet.data(), packet.size()});
            largest = std::max(largest, packet.size());
            frameBytes += packet.size();
        }
        largestFrame = std::max(largestFrame, frameBytes);
    }
}

std::span<iovec> CPacketStream::NextFrame() {
    SFrame& frame = frames[next];
    next = (next + 1) % frames.size();
    timestamp += timestampStep;
    for (auto& packet : frame.packets) {
        bigendian::Put16(&packet[2], sequence++ & 0xFFFFU);
        bigendian::Put32(&packet[4], timestamp);
    }
    return frame.views;
}

double CPacketStream::packetsPerFrame() const noexcept {
    const std::size_t all =
        std::accumulate(frames.begin(), frames.end(), std::size_t{0},
                        [](std::size_t sum, const SFrame& f) { return sum + f.packets.size(); });
    return static_cast<double>(all) / static_cast<double>(frames.size());
}

}  // namespace bench
