#include "ReplayStream.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace korusim {
namespace {

/// Packets that are due within this time are sent together, which saves waking up for each packet
/// of a burst.
constexpr std::chrono::microseconds together{30};
/// Time from PLAY to the first packet. Without it, that packet alone would be late.
constexpr std::chrono::milliseconds startTime{2};
constexpr std::chrono::microseconds retryTime{500};

/// Returns a time span in NTP format.
std::uint64_t NtpSpan(Clock::duration time) {
    constexpr std::uint64_t perSecond = 1'000'000'000;
    const auto nanoseconds = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(time).count());
    return (nanoseconds / perSecond) << 32 | (nanoseconds % perSecond << 32) / perSecond;
}

}  // namespace

CReplayStream::CReplayStream(FrameSourceMaker makeSource,
                             std::shared_ptr<const SRecordedStream> recorded, bool loop)
    : stream(std::move(recorded)),
      schedule(stream->flow),
      reader(std::move(makeSource), *stream, loop),
      highestSequence(stream->flow.first().sequence - 1U) {
    ReadAhead();
}

void CReplayStream::ReadAhead() {
    const auto fill = [this] { reader.Fill(following); };
    try {
        filled = std::async(std::launch::async, fill);
    } catch (const std::system_error&) {
        // Without a thread some packets are late.
        filled = std::async(std::launch::deferred, fill);
    }
}

/// Goes to the batch with the next packet, if it has been read already. A search through a large
/// file must not keep the camera from responding to requests.
void CReplayStream::GoToPacket(TimePoint now) {
    while (position == batch.packets.size() && !batch.last) {
        if (filled.wait_for(std::chrono::seconds(0)) == std::future_status::timeout) {
            retryAt = now + retryTime;
            return;
        }
        filled.get();
        std::swap(batch, following);
        position = 0;
        if (!batch.last) ReadAhead();
    }
}

const SReplayPacket* CReplayStream::Next() const {
    return position < batch.packets.size() ? &batch.packets[position] : nullptr;
}

TimePoint CReplayStream::DueTime(const SReplayPacket& packet) const {
    return begin + schedule.DueTime(packet.time, packet.round);
}

void CReplayStream::Play(TimePoint now) {
    starting = true;
    retryAt = now;
}

void CReplayStream::Advance(TimePoint now, const PacketSink& sink) {
    GoToPacket(now);
    if (const auto* packet = Next(); packet != nullptr && std::exchange(starting, false)) {
        begin = now + startTime - schedule.DueTime(packet->time, packet->round);
    }
    for (const auto* packet = Next(); packet != nullptr && !packet->rtcp; packet = Next()) {
        if (DueTime(*packet) > now + together) return;
        const auto datagram = batch.BytesOf(*packet);
        schedule.AdaptRtp(datagram, packet->round);
        Count(datagram);
        sink(datagram);
        ++position;
        GoToPacket(now);
    }
}

void CReplayStream::Count(std::span<const std::uint8_t> datagram) {
    const auto header = ReadRtpHeader(datagram);
    if (!header) return;
    ++counts.packets;
    counts.octets += header->payload.size();
    if (header->marker) ++counts.frames;
    const auto step =
        static_cast<std::int16_t>(header->sequence - static_cast<std::uint16_t>(highestSequence));
    if (step > 0) highestSequence += static_cast<std::uint32_t>(step);
}

std::optional<SOutgoingReport> CReplayStream::Report(TimePoint now, std::uint64_t ntpNow) {
    const auto* const packet = Next();
    if (packet == nullptr || starting || !packet->rtcp || DueTime(*packet) > now)
        return std::nullopt;
    const auto datagram = batch.BytesOf(*packet);
    const std::uint64_t ntp =
        schedule.AdaptRtcp(datagram, packet->round, ntpNow - NtpSpan(now - begin));
    SOutgoingReport report{std::string(datagram.begin(), datagram.end()), ntp};
    ++position;
    GoToPacket(now);
    return report;
}

TimePoint CReplayStream::nextDue() const {
    const auto* const packet = Next();
    if (packet != nullptr && !starting) return DueTime(*packet);
    return packet == nullptr && batch.last ? TimePoint::max() : retryAt;
}

SSentSoFar CReplayStream::SentSoFar(std::uint64_t ntpNow) const {
    return {ntpNow, stream->flow.first().sequence, highestSequence, stream->flow.ordered()};
}

}  // namespace korusim
