#include "RtcpPackets.h"

#include <algorithm>
#include <cstring>

#include "BigEndian.h"

namespace qmx::cam {
namespace {

constexpr std::uint8_t typeSenderReport = 200;
constexpr std::uint8_t typeReceiverReport = 201;
constexpr std::uint8_t typeSdes = 202;
constexpr std::uint8_t typeBye = 203;
constexpr std::uint8_t itemCname = 1;

constexpr std::size_t headerSize = 8;  // with the sender's SSRC
constexpr std::size_t blockSize = 24;
constexpr std::size_t byeSize = 8;
constexpr std::size_t longestName = 255;

//  0                   1                   2                   3
//  0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
// +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
// |V=2|P|  count  |      type     |   length in words, minus one  |
// |                       SSRC of the sender                      |
/// Writes this header. `size` is in bytes and a multiple of 4.
void PutHeader(std::uint8_t* to, std::uint8_t count, std::uint8_t type, std::size_t size,
               const SsrcBytes& ssrc) noexcept {
    to[0] = static_cast<std::uint8_t>(0x80 | count);
    to[1] = type;
    WriteBig16(to + 2, static_cast<std::uint32_t>(size / 4 - 1));
    std::copy(ssrc.begin(), ssrc.end(), to + 4);
}

/// Writes the SDES packet with the CNAME into zeroed memory and returns its size. At least one zero
/// byte ends the list of items.
std::size_t PutSdes(std::uint8_t* to, const SsrcBytes& ssrc, std::string_view name) noexcept {
    const std::size_t size = (name.size() + 11 + 3) / 4 * 4;
    PutHeader(to, 1, typeSdes, size, ssrc);
    to[8] = itemCname;
    to[9] = static_cast<std::uint8_t>(name.size());
    std::copy(name.begin(), name.end(), to + 10);
    return size;
}

// |                       SSRC of the source                      |
// | fraction lost |            cumulative number lost             |
// |               extended highest sequence number                |
// |                      interarrival jitter, 0                   |
// |                           last SR                             |
// |                     delay since last SR                       |
void PutReportBlock(std::uint8_t* to, const SReportBlock& figures, std::uint32_t lastSenderReport,
                    std::uint32_t delay) noexcept {
    WriteBig32(to, figures.ssrc);
    WriteBig32(to + 4, figures.cumulativeLost);
    to[4] = figures.fractionLost;
    WriteBig32(to + 8, figures.extendedHighestSeq);
    std::memcpy(to + 16, &lastSenderReport, sizeof(lastSenderReport));
    WriteBig32(to + 20, delay);
}

}  // namespace

std::optional<std::uint32_t> CSenderReportReader::Next() noexcept {
    constexpr std::size_t commonHeader = 4;
    constexpr std::size_t ntpEnd = 16;
    constexpr std::size_t ntpMiddle = 10;
    while (offset + commonHeader < datagram.size()) {
        const std::uint8_t* const packet = &datagram[offset];
        const std::size_t size = 4 * std::size_t{ReadBig16(packet + 2)} + commonHeader;
        if (offset + size > datagram.size()) break;
        offset += size;
        if ((packet[0] >> 6) != 2 || packet[1] != typeSenderReport || size < ntpEnd) continue;
        std::uint32_t middle = 0;
        std::memcpy(&middle, packet + ntpMiddle, sizeof(middle));
        return middle;
    }
    offset = datagram.size();
    return std::nullopt;
}

SReportBlock UpdateReportBlock(SRtpSource& source) noexcept {
    const std::uint32_t extended = source.cycles + source.max_seq;
    const std::uint32_t expected = extended - source.base_seq + 1;
    const std::uint32_t lost = expected - source.received;
    const std::uint32_t expectedInterval = expected - source.expected_prior;
    const std::uint32_t receivedInterval = source.received - source.received_prior;
    source.expected_prior = expected;
    source.received_prior = source.received;

    const std::uint32_t lostInterval = expectedInterval - receivedInterval;
    const bool anyLost = expectedInterval != 0 && static_cast<std::int32_t>(lostInterval) > 0;
    const std::uint32_t fraction = anyLost ? (lostInterval << 8) / expectedInterval : 0;
    return {source.ssrc, static_cast<std::uint8_t>(fraction), lost & 0x00FFFFFF, extended};
}

CRtcpPackets::CRtcpPackets(const SsrcBytes& ssrc, std::string_view name) noexcept {
    const std::string_view fitting = name.substr(0, longestName);
    PutHeader(initialReport.data(), 0, typeReceiverReport, headerSize, ssrc);
    initialSize = headerSize + PutSdes(&initialReport[headerSize], ssrc, fitting);

    PutHeader(report.data(), 1, typeReceiverReport, headerSize + blockSize, ssrc);
    reportSize = headerSize + blockSize;
    reportSize += PutSdes(&report[reportSize], ssrc, fitting);
    PutHeader(&report[reportSize], 1, typeBye, byeSize, ssrc);
}

std::span<const std::uint8_t> CRtcpPackets::Report(const SReportBlock& figures,
                                                   std::uint32_t lastSenderReport,
                                                   std::uint32_t delay) noexcept {
    PutReportBlock(&report[headerSize], figures, lastSenderReport, delay);
    return {report.data(), reportSize};
}

std::span<const std::uint8_t> CRtcpPackets::ReportWithBye(const SReportBlock& figures,
                                                          std::uint32_t lastSenderReport,
                                                          std::uint32_t delay) noexcept {
    return {report.data(), Report(figures, lastSenderReport, delay).size() + byeSize};
}

}  // namespace qmx::cam
