#include "Rtcp.h"

#include <algorithm>
#include <vector>

#include "BigEndian.h"

namespace korusim {
namespace {

constexpr std::uint8_t senderReportType = 200;
constexpr std::uint8_t receiverReportType = 201;
constexpr std::uint8_t descriptionType = 202;
constexpr std::uint8_t byeType = 203;

constexpr std::size_t headerBytes = 4;
constexpr std::size_t reportHeadBytes = 8;  // header and SSRC of the reporter
constexpr std::size_t senderInfoBytes = 20;
constexpr std::size_t blockBytes = 24;
constexpr std::uint8_t cnameItem = 1;
/// Number of sender reports that a receiver may refer to. An older one counts as never sent.
constexpr std::size_t rememberedReports = 64;
/// Tolerance of the delay check in 1/65536 s: the clocks are read at different moments.
constexpr std::uint32_t delaySlack = 65536 / 10;

constexpr std::array<std::string_view, static_cast<std::size_t>(ERtcpFault::Count)> faultTexts{
    "the lengths do not add up",
    "the version is not 2",
    "padding",
    "no report at the beginning",
    "no CNAME",
    "the report length does not match its blocks",
    "malformed source description",
    "the BYE length does not match its sources",
    "the last SR was never sent",
    "the delay since the last SR is too long",
    "the highest sequence number was never sent",
    "the SSRC is not the receiver's",
    "the CNAME has changed",
    "a packet after the BYE",
    "more packets lost than sent",
    "a fraction lost without a loss",
};

/// |V=2|P|  count  |     type      |  length in words minus 1      |
void PutHeader(std::uint8_t* to, unsigned count, std::uint8_t type, std::size_t bytes) {
    to[0] = static_cast<std::uint8_t>(0x80U | count);
    to[1] = type;
    bigendian::Put16(to + 2, static_cast<std::uint32_t>(bytes / 4 - 1));
}

std::size_t PacketBytes(std::span<const std::uint8_t> packet) {
    return (std::size_t{bigendian::Get16(&packet[2])} + 1) * 4;
}

SReportBlock ReadBlock(const std::uint8_t* from) {
    const std::uint32_t lost = bigendian::Get32(from + 4) & 0xFFFFFF;
    constexpr std::uint32_t sign = 0x800000;
    const auto cumulative =
        static_cast<std::int32_t>((lost ^ sign)) - static_cast<std::int32_t>(sign);
    return {bigendian::Get32(from),
            from[4],
            cumulative,
            bigendian::Get32(from + 8),
            bigendian::Get32(from + 12),
            bigendian::Get32(from + 16),
            bigendian::Get32(from + 20)};
}

}  // namespace

std::string_view TextOf(ERtcpFault fault) { return faultTexts[static_cast<std::size_t>(fault)]; }

std::string BuildSenderReport(const SSenderReport& report, std::string_view cname) {
    constexpr std::size_t reportBytes = reportHeadBytes + senderInfoBytes;
    constexpr std::size_t itemAt = reportBytes + headerBytes + 4;  // after the chunk's SSRC
    const std::string_view name = cname.substr(0, 255);
    // At least one zero byte ends the list of items, which fills whole words.
    const std::size_t descriptionBytes = (headerBytes + 4 + 2 + name.size() + 1 + 3) / 4 * 4;
    std::vector<std::uint8_t> packet(reportBytes + descriptionBytes);
    PutHeader(packet.data(), 0, senderReportType, reportBytes);
    bigendian::Put32(&packet[4], report.ssrc);
    bigendian::Put32(&packet[8], static_cast<std::uint32_t>(report.ntp >> 32));
    bigendian::Put32(&packet[12], static_cast<std::uint32_t>(report.ntp));
    bigendian::Put32(&packet[16], report.rtpTimestamp);
    bigendian::Put32(&packet[20], report.packets);
    bigendian::Put32(&packet[24], report.octets);
    PutHeader(&packet[reportBytes], 1, descriptionType, descriptionBytes);
    bigendian::Put32(&packet[reportBytes + headerBytes], report.ssrc);
    packet[itemAt] = cnameItem;
    packet[itemAt + 1] = static_cast<std::uint8_t>(name.size());
    std::ranges::copy(name, packet.begin() + itemAt + 2);
    return std::string(packet.begin(), packet.end());
}

void CRtcpReader::NoteSenderReport(std::uint64_t ntp) {
    sentReports.push_back(MiddleOf(ntp));
    if (sentReports.size() > rememberedReports) sentReports.pop_front();
}

bool CRtcpReader::Fail(ERtcpFault fault) {
    ++counts.faults[static_cast<std::size_t>(fault)];
    return false;
}

bool CRtcpReader::Read(std::span<const std::uint8_t> datagram, const SSentSoFar& sent) {
    ++counts.datagrams;
    named = false;
    if (!Walk(datagram, sent)) return false;
    return named || Fail(ERtcpFault::NoName);
}

bool CRtcpReader::Walk(std::span<const std::uint8_t> datagram, const SSentSoFar& sent) {
    constexpr unsigned paddingBit = 0x20;
    bool first = true;
    do {
        if (gone) return Fail(ERtcpFault::BehindBye);
        if (datagram.size() < headerBytes) return Fail(ERtcpFault::NotWhole);
        if (datagram[0] >> 6 != 2) return Fail(ERtcpFault::BadVersion);
        if ((datagram[0] & paddingBit) != 0) return Fail(ERtcpFault::BadPadding);
        const bool isReport = datagram[1] == senderReportType || datagram[1] == receiverReportType;
        if (first && !isReport) return Fail(ERtcpFault::NoReportFirst);
        const std::size_t bytes = PacketBytes(datagram);
        if (bytes > datagram.size()) return Fail(ERtcpFault::NotWhole);
        if (!ReadPacket(datagram.first(bytes), sent)) return false;
        datagram = datagram.subspan(bytes);
        first = false;
    } while (!datagram.empty());
    return true;
}

bool CRtcpReader::ReadPacket(std::span<const std::uint8_t> packet, const SSentSoFar& sent) {
    switch (packet[1]) {
        case senderReportType:
            return ReadReport(packet, senderInfoBytes, sent);
        case receiverReportType:
            return ReadReport(packet, 0, sent);
        case descriptionType:
            return ReadDescription(packet);
        case byeType:
            return ReadBye(packet);
        default:
            return true;
    }
}

bool CRtcpReader::ReadReport(std::span<const std::uint8_t> packet, std::size_t infoBytes,
                             const SSentSoFar& sent) {
    const std::size_t count = packet[0] & 0x1FU;
    const std::size_t blocksAt = reportHeadBytes + infoBytes;
    if (packet.size() != blocksAt + count * blockBytes) return Fail(ERtcpFault::ReportLength);
    ++counts.reports;
    CheckSource(bigendian::Get32(&packet[headerBytes]));
    for (std::size_t i = 0; i < count; ++i) {
        CheckBlock(ReadBlock(&packet[blocksAt + i * blockBytes]), sent);
    }
    return true;
}

void CRtcpReader::CheckBlock(const SReportBlock& block, const SSentSoFar& sent) {
    if (block.ssrc != ssrc) {
        ++counts.otherBlocks;
        return;
    }
    ++counts.blocks;
    if (block.highestSequence > sent.highestSequence) Fail(ERtcpFault::NeverSent);
    CheckLoss(block, sent);
    CheckEcho(block, sent);
    counts.last = block;
}

/// Reports only certain mistakes. A receiver may count fewer packets than were lost: it misses
/// those before it began to count and after the last packet that it received.
void CRtcpReader::CheckLoss(const SReportBlock& block, const SSentSoFar& sent) {
    // A receiver that has restarted its count may be one cycle of the sequence number behind.
    const auto covered = std::int64_t{block.highestSequence} - sent.firstSequence + 1;
    if (covered > 0 && block.cumulativeLost > covered) Fail(ERtcpFault::LostTooMany);
    const std::int32_t before = counts.last ? counts.last->cumulativeLost : 0;
    if (sent.inOrder && block.fractionLost != 0 && block.cumulativeLost == before) {
        Fail(ERtcpFault::LostNone);
    }
}

void CRtcpReader::CheckEcho(const SReportBlock& block, const SSentSoFar& sent) {
    if (block.lastReport == 0) return;
    if (std::ranges::find(sentReports, block.lastReport) == sentReports.end()) {
        Fail(ERtcpFault::UnknownReport);
    } else if (block.delay > MiddleOf(sent.ntpNow) - block.lastReport + delaySlack) {
        Fail(ERtcpFault::ImpossibleDelay);
    }
}

bool CRtcpReader::ReadDescription(std::span<const std::uint8_t> packet) {
    auto rest = packet.subspan(headerBytes);
    for (std::size_t chunks = packet[0] & 0x1FU; chunks > 0; --chunks) {
        std::size_t at = 4;  // after the chunk's SSRC
        for (; at < rest.size() && rest[at] != 0; at += 2 + std::size_t{rest[at + 1]}) {
            if (at + 2 > rest.size() || at + 2 + rest[at + 1] > rest.size()) break;
            if (rest[at] != cnameItem) continue;
            const auto name = rest.subspan(at + 2, rest[at + 1]);
            TakeName({reinterpret_cast<const char*>(name.data()), name.size()});
        }
        if (at >= rest.size() || rest[at] != 0) return Fail(ERtcpFault::BadDescription);
        CheckSource(bigendian::Get32(rest.data()));
        rest = rest.subspan(at / 4 * 4 + 4);  // the zero bytes at the end fill the word
    }
    return rest.empty() || Fail(ERtcpFault::BadDescription);
}

bool CRtcpReader::ReadBye(std::span<const std::uint8_t> packet) {
    const std::size_t count = packet[0] & 0x1FU;
    // A reason for leaving may follow the sources.
    if (packet.size() < headerBytes + 4 * count) return Fail(ERtcpFault::ByeLength);
    ++counts.byes;
    for (std::size_t i = 0; i < count; ++i)
        CheckSource(bigendian::Get32(&packet[headerBytes + 4 * i]));
    gone = true;
    return true;
}

void CRtcpReader::CheckSource(std::uint32_t source) {
    if (!receiver) receiver = source;
    if (source != *receiver) Fail(ERtcpFault::OtherSource);
}

void CRtcpReader::TakeName(std::string_view name) {
    named = true;
    if (!counts.name.empty() && name != counts.name) Fail(ERtcpFault::OtherName);
    counts.name = name;
}

}  // namespace korusim
