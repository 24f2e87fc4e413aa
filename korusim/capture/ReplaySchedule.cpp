#include "ReplaySchedule.h"

#include <algorithm>

#include "BigEndian.h"
#include "RtpHeader.h"

namespace korusim {
namespace {

/// Returns a time since 1970 in NTP format: seconds since 1900 and a 32-bit fraction.
std::uint64_t NtpOf(std::int64_t nanoseconds) {
    constexpr std::uint64_t secondsFrom1900To1970 = 2'208'988'800;
    constexpr std::uint64_t perSecond = 1'000'000'000;
    const auto time = static_cast<std::uint64_t>(nanoseconds);
    return (time / perSecond + secondsFrom1900To1970) << 32 | (time % perSecond << 32) / perSecond;
}

void Add32(std::uint8_t* field, std::uint32_t value) {
    bigendian::Put32(field, bigendian::Get32(field) + value);
}

}  // namespace

std::chrono::nanoseconds CReplaySchedule::DueTime(std::int64_t recorded,
                                                  std::uint32_t round) const {
    const std::int64_t within = std::clamp<std::int64_t>(recorded - begin, 0, step.nanoseconds);
    return std::chrono::nanoseconds(within) + std::chrono::nanoseconds(step.nanoseconds) * round;
}

void CReplaySchedule::AdaptRtp(std::span<std::uint8_t> datagram, std::uint32_t round) const {
    if (round == 0 || datagram.size() < rtpHeaderBytes) return;
    bigendian::Put16(&datagram[2], bigendian::Get16(&datagram[2]) + round * step.sequence);
    Add32(&datagram[4], round * step.timestamp);
}

std::uint64_t CReplaySchedule::AdaptRtcp(std::span<std::uint8_t> datagram, std::uint32_t round,
                                         std::uint64_t startNtp) const {
    constexpr std::uint8_t senderReport = 200;
    constexpr std::size_t senderReportBytes = 28;
    if (datagram.size() < senderReportBytes || datagram[1] != senderReport) return 0;
    // Modulo 2^64, as a recorded time in the past or in the future requires.
    const std::uint64_t recorded =
        std::uint64_t{bigendian::Get32(&datagram[8])} << 32 | bigendian::Get32(&datagram[12]);
    const std::uint64_t elapsed = NtpOf(DueTime(begin, round).count()) - NtpOf(0);
    const std::uint64_t ntp = recorded - NtpOf(begin) + startNtp + elapsed;
    bigendian::Put32(&datagram[8], static_cast<std::uint32_t>(ntp >> 32));
    bigendian::Put32(&datagram[12], static_cast<std::uint32_t>(ntp));
    Add32(&datagram[16], round * step.timestamp);
    Add32(&datagram[20], round * step.packets);
    Add32(&datagram[24], round * step.octets);
    return ntp;
}

}  // namespace korusim
