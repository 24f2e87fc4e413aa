// The choice of the stream to replay, and the sentences about captures without a suitable one.
#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "CaptureIndex.h"

namespace korusim {
namespace {

/// Longest stream in nanoseconds: 30 days. The times of a damaged capture may be anything.
constexpr std::int64_t maxDuration = std::int64_t{30} * 24 * 3600 * 1'000'000'000;

std::string Seconds(std::int64_t nanoseconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f s", static_cast<double>(nanoseconds) / 1e9);
    return text.data();
}

std::string NameOf(const SRecordedStream& stream) {
    std::string name = stream.hasRtsp() ? std::string(SplitUrl(stream.exchanges.front().url).path)
                                        : "RTP without RTSP";
    // A path from a capture must not control the terminal.
    std::ranges::replace_if(
        name, [](char c) { return c < 0x20 || c == 0x7F; }, '?');
    return name + " from " + AddressText(stream.server.address) + " to " +
           AddressText(stream.client.address) + ":" + std::to_string(stream.client.port);
}

/// Returns why a stream cannot be replayed, or an empty text.
std::string ObstacleOf(const SCaptureContents& contents, const SRecordedStream& stream) {
    const CRtpFlow& flow = stream.flow;
    if (!stream.obstacle.empty()) return stream.obstacle;
    if (flow.packets() == 0) return "has no RTP packets in the capture";
    if (flow.duration() > maxDuration) return "lasts longer than 30 days";
    if (flow.cutPackets() != 0) {
        return "has " + std::to_string(flow.cutPackets()) + " of " +
               std::to_string(flow.packets()) +
               " packets cut short; capture whole packets (snap length 0)";
    }
    if (!IsDescribed(contents, stream) && !flow.format()) {
        return "has neither a description in the capture nor a known payload";
    }
    return {};
}

std::string ListOf(const SCaptureContents& contents) {
    std::string list;
    constexpr std::size_t maxListed = 20;
    const std::size_t listed = std::min(contents.streams.size(), maxListed);
    for (std::size_t i = 0; i < listed; ++i) {
        const SRecordedStream& stream = contents.streams[i];
        list += (i == 0 ? "" : "; ") + std::to_string(i + 1) + ": " + NameOf(stream) + ", " +
                std::to_string(stream.flow.packets()) + " packets in " +
                Seconds(stream.flow.duration());
    }
    const std::size_t others = contents.streams.size() - listed;
    return others == 0 ? list : list + "; and " + std::to_string(others) + " more";
}

[[noreturn]] void FailWithoutStream(const SCaptureContents& contents) {
    if (contents.encryptedRtsp) {
        throw std::runtime_error("the RTSP connection is encrypted (TLS)");
    }
    std::string text = "none of its " + std::to_string(contents.frames) +
                       " packets belongs to an RTP stream over UDP and IPv4";
    if (contents.ipv6Frames != 0) {
        text += "; " + std::to_string(contents.ipv6Frames) + " are IPv6";
    }
    if (contents.cutPackets != 0) {
        text += "; " + std::to_string(contents.cutPackets) +
                " are cut short, so capture whole packets (snap length 0)";
    }
    throw std::runtime_error(text);
}

/// Returns the index of the only stream of RTSP that can be replayed.
std::size_t OnlyStream(const SCaptureContents& contents) {
    std::vector<std::size_t> replayable;
    std::optional<std::size_t> withRtsp;
    for (std::size_t i = 0; i < contents.streams.size(); ++i) {
        const SRecordedStream& stream = contents.streams[i];
        if (!stream.hasRtsp()) continue;
        if (!withRtsp) withRtsp = i;
        if (ObstacleOf(contents, stream).empty()) replayable.push_back(i);
    }
    if (replayable.size() == 1) return replayable.front();
    if (replayable.empty() && withRtsp) return *withRtsp;  // the caller reports its obstacle
    throw std::runtime_error("choose a stream with stream=N: " + ListOf(contents));
}

}  // namespace

bool IsDescribed(const SCaptureContents& contents, const SRecordedStream& stream) {
    const auto server = contents.exchanges.find(stream.server);
    return stream.hasRtsp() && server != contents.exchanges.end() &&
           std::ranges::any_of(server->second, [](const SRtspExchange& each) {
               return each.method == "DESCRIBE" && each.status == 200;
           });
}

std::size_t ChooseStream(const SCaptureContents& contents, std::uint32_t number) {
    if (contents.streams.empty()) FailWithoutStream(contents);
    if (number > contents.streams.size()) {
        throw std::runtime_error("there is no stream " + std::to_string(number) + ": " +
                                 ListOf(contents));
    }
    const std::size_t chosen = number != 0 ? number - 1 : OnlyStream(contents);
    const SRecordedStream& stream = contents.streams[chosen];
    const std::string obstacle = ObstacleOf(contents, stream);
    if (!obstacle.empty()) {
        throw std::runtime_error("the stream " + NameOf(stream) + " " + obstacle);
    }
    return chosen;
}

}  // namespace korusim
