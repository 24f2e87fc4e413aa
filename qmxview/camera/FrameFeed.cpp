#include "FrameFeed.h"

#include <chrono>
#include <exception>
#include <utility>
#include <variant>

#include "PixelTypeNames.h"

namespace qmxview {
namespace {

using namespace std::chrono_literals;

/// Returns the brightness of a colour by the weights of JPEG, in 256ths.
std::uint16_t Luminance(const std::uint8_t* rgb) {
    return static_cast<std::uint16_t>((77 * rgb[0] + 150 * rgb[1] + 29 * rgb[2] + 128) >> 8);
}

void SetPicture(SViewFrame& to, frames::SGreyPicture&& picture) {
    to.values = std::move(picture);
    to.colours.clear();
}

void SetPicture(SViewFrame& to, frames::SColourPicture&& picture) {
    to.values.width = picture.width;
    to.values.height = picture.height;
    to.values.pixels.resize(std::size_t{picture.width} * picture.height);
    for (std::size_t i = 0; i < to.values.pixels.size(); ++i) {
        to.values.pixels[i] = Luminance(&picture.samples[3 * i]);
    }
    to.colours = std::move(picture.samples);
}

}  // namespace

CFrameFeed::~CFrameFeed() { End(); }

void CFrameFeed::Begin(const qmx::cam::IDevice::SFormat& newFormat) {
    End();
    const bool same = newFormat.width == format.width && newFormat.height == format.height &&
                      newFormat.pixelType == format.pixelType;
    if (!same) RecordTo(nullptr);
    format = newFormat;
    coded = format.pixelType != frames::rawType;
    statistics.ExpectPause();
    if (!coded) return;
    decoderStops = false;
    decoder = std::thread([this] { RunDecoder(); });
}

void CFrameFeed::End() {
    if (!decoder.joinable()) return;
    decoderStops = true;
    decoderSignal.Notify();
    decoder.join();
    if (toDecode.Fetch() != nullptr) ++notShown;
}

void CFrameFeed::Add(std::span<const std::uint8_t> frame) noexcept {
    const frames::Clock::time_point begun = frames::Clock::now();
    if (count++ == 0) first = begun;
    statistics.Add(static_cast<std::uint32_t>(frame.size()), begun);
    const frames::SArrival arrival{count, std::chrono::system_clock::now(),
                                   frames::Seconds(begun - first)};
    try {
        Deliver(frame, arrival, begun);
    } catch (const std::exception&) {
        ++notShown;  // memory is short
    }
    const frames::Clock::duration taken = frames::Clock::now() - begun;
    if (taken > longestCallback.load()) longestCallback = taken;
}

void CFrameFeed::Deliver(std::span<const std::uint8_t> frame, const frames::SArrival& arrival,
                         frames::Clock::time_point received) {
    {
        const std::lock_guard guard(recorderLock);
        if (recorder != nullptr) recorder->Push(frame, arrival);
    }
    if (coded) {
        SCodedFrame& slot = toDecode.ForWriting();
        slot.bytes.assign(frame.begin(), frame.end());
        slot.arrival = arrival;
        slot.received = received;
        if (toDecode.Send()) ++notShown;
        decoderSignal.Notify();
        return;
    }
    SViewFrame& slot = pictures.ForWriting();
    frames::ReadRawPicture(slot.values, frame, format.width);
    if (slot.values.pixels.empty()) return CountUndecodable();
    slot.colours.clear();
    slot.arrival = arrival;
    slot.received = received;
    SendPicture();
}

void CFrameFeed::SendPicture() {
    if (pictures.Send()) ++notShown;
    screenSignal.Notify();
}

void CFrameFeed::RunDecoder() {
    while (!decoderStops) {
        decoderSignal.Wait(1s);
        const SCodedFrame* const newest = decoderStops ? nullptr : toDecode.Fetch();
        if (newest == nullptr) continue;
        try {
            Decode(*newest);
        } catch (const std::exception&) {
            ++notShown;  // memory is short
        }
    }
}

void CFrameFeed::Decode(const SCodedFrame& from) {
    auto picture = frames::DecodePicture(from.bytes, format.pixelType, format.width);
    if (!picture) return CountUndecodable();
    SViewFrame& slot = pictures.ForWriting();
    std::visit([&](auto& decoded) { SetPicture(slot, std::move(decoded)); }, *picture);
    slot.arrival = from.arrival;
    slot.received = from.received;
    SendPicture();
}

void CFrameFeed::CountUndecodable() noexcept {
    ++undecodable;
    ++notShown;
}

const SViewFrame* CFrameFeed::Fetch() {
    const SViewFrame* const newest = pictures.Fetch();
    if (newest != nullptr) ++shown;
    return newest;
}

void CFrameFeed::Drain() {
    if (pictures.Fetch() != nullptr) ++notShown;
}

void CFrameFeed::RecordTo(CRecorder* target) {
    const std::lock_guard guard(recorderLock);
    recorder = target;
}

bool CFrameFeed::Records() {
    const std::lock_guard guard(recorderLock);
    return recorder != nullptr;
}

SFeedCounts CFrameFeed::Counts() const {
    return {statistics.Totals(), shown, notShown, undecodable, longestCallback};
}

}  // namespace qmxview
