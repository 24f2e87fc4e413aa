#include "VideoStream.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <system_error>
#include <utility>

namespace korusim {
namespace {

constexpr double rtpTicksPerSecond = 90'000;
/// Most lost packets that are kept: a report refers to a packet that was sent a moment ago.
constexpr std::size_t rememberedLost = 10'000;

Clock::duration Duration(double seconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

CVideoStream::CVideoStream(const SCameraSettings& settings, const SVideoFormat& format, double rate,
                           const std::shared_ptr<const CPictureSource>& pictures,
                           std::uint64_t seed, TimePoint now)
    : sending(std::make_unique<CFramePipeline>(settings, format, pictures)),
      coding(std::make_unique<CFramePipeline>(settings, format, pictures)),
      // Making a raw frame takes less time than starting a thread, unless its picture is slow.
      codingPolicy(format.encoding == EEncoding::Raw && !pictures->slow() ? std::launch::deferred
                                                                          : std::launch::async),
      pacer(rate),
      reportSeconds(settings.senderReportSeconds),
      cname("korusim@" + settings.address),
      impairments(settings, seed),
      epoch(now),
      skipsFrames(settings.Has(EQuirk::SkipFrames)),
      datagram(sending->maxPacketBytes()) {
    std::mt19937_64 random(seed);
    fields.payloadType = format.payloadType;
    fields.ssrc = static_cast<std::uint32_t>(random());
    fields.sequence = static_cast<std::uint32_t>(random() & 0xFFFF);
    firstSequence = fields.sequence;
    firstTimestamp = static_cast<std::uint32_t>(random());
}

void CVideoStream::Play(TimePoint now) {
    pacer.Start(now);
    if (reportSeconds > 0) nextReport = now + Duration(reportSeconds);
}

void CVideoStream::Pause(const PacketSink& sink) { impairments.Flush(sink); }

void CVideoStream::SetRate(double framesPerSecond, TimePoint now) {
    pacer.SetRate(framesPerSecond, now);
}

double CVideoStream::SecondsAt(TimePoint when) const {
    return std::chrono::duration<double>(when - epoch).count();
}

std::uint32_t CVideoStream::TimestampAt(TimePoint when) const {
    const auto ticks = std::llround(SecondsAt(when) * rtpTicksPerSecond);
    return firstTimestamp + static_cast<std::uint32_t>(ticks);
}

bool CVideoStream::SkipsThisFrame() { return skipsFrames && ++scheduledFrames % 3 == 0; }

void CVideoStream::BeginFrame(TimePoint scheduled) {
    // A frame that a pause interrupted passes its number on to the next one, because no receiver
    // has it.
    const auto number = static_cast<std::uint32_t>(counts.frames);
    if (coded.valid()) coded.get();
    if (coding->number() != number) coding->Load(number, SecondsAt(scheduled));
    std::swap(sending, coding);
    nextPacket = 0;
    fields.timestamp = TimestampAt(scheduled);
    const auto code = [next = coding.get(), number, seconds = SecondsAt(pacer.nextDue())] {
        next->Load(number + 1, seconds);
    };
    try {
        coded = std::async(codingPolicy, code);
    } catch (const std::system_error&) {
        coded = std::async(std::launch::deferred,
                           code);  // without a thread the packets are late, but complete
    }
    pacer.Load(sending->packets());
}

void CVideoStream::Advance(TimePoint now, const PacketSink& sink) {
    const auto scheduled = pacer.Begin(now);
    if (scheduled && !SkipsThisFrame()) BeginFrame(*scheduled);
    for (std::size_t left = pacer.Take(now); left > 0; --left) {
        const std::size_t bytes = sending->Build(nextPacket++, fields, datagram);
        ++fields.sequence;
        ++counts.packets;
        counts.octets += bytes - rtpHeaderBytes;
        const std::uint64_t lostBefore = impairments.tally().dropped;
        impairments.Pass(std::span(datagram).first(bytes), sink);
        if (impairments.tally().dropped != lostBefore) latestLost.push_back(fields.sequence - 1);
        if (latestLost.size() > rememberedLost) latestLost.pop_front();
        if (nextPacket == sending->packets()) ++counts.frames;
    }
}

SSentSoFar CVideoStream::SentSoFar(std::uint64_t ntpNow) const {
    const SImpairmentTally& network = impairments.tally();
    return {ntpNow, firstSequence, fields.sequence - 1,
            network.duplicated == 0 && network.reordered == 0};
}

std::optional<std::uint64_t> CVideoStream::LostUpTo(std::uint32_t sequence) const {
    const std::uint64_t lost = impairments.tally().dropped;
    const auto later = static_cast<std::uint64_t>(
        std::ranges::count_if(latestLost, [&](std::uint32_t each) { return each > sequence; }));
    const bool forgotten = lost > latestLost.size() && later == latestLost.size();
    return forgotten ? std::nullopt : std::optional(lost - later);
}

std::optional<SOutgoingReport> CVideoStream::Report(TimePoint now, std::uint64_t ntpNow) {
    if (now < nextReport) return std::nullopt;
    nextReport = std::max(nextReport + Duration(reportSeconds), now);
    const SSenderReport report{fields.ssrc, ntpNow, TimestampAt(now),
                               static_cast<std::uint32_t>(counts.packets),
                               static_cast<std::uint32_t>(counts.octets)};
    return SOutgoingReport{BuildSenderReport(report, cname), ntpNow};
}

TimePoint CVideoStream::nextDue() const { return std::min(pacer.nextDue(), nextReport); }

SStreamTally CVideoStream::tally() const {
    SStreamTally tally = counts;
    tally.skippedFrames = pacer.skippedSlots();
    tally.network = impairments.tally();
    return tally;
}

}  // namespace korusim
