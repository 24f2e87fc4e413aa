#include "StreamSummary.h"

namespace korusim {
namespace {

std::string Number(std::uint64_t number, std::string_view what) {
    return std::to_string(number) + " " + std::string(what);
}

std::string LastBlockLine(const SReportBlock& block) {
    return "  receiver's last report: fraction lost " + std::to_string(block.fractionLost) +
           "/256, " + std::to_string(block.cumulativeLost) +
           " lost in total, highest sequence number " + std::to_string(block.highestSequence) +
           ", jitter " + std::to_string(block.jitter) + ", delay since last SR " +
           Number(std::uint64_t{block.delay} * 1000 / 65536, "ms\n");
}

/// Compares the two counts of lost packets. They differ by the packets that were lost before the
/// receiver began to count, by those that its system had no room for, and by duplicate and late
/// ones.
std::string LossLine(const SReportBlock& block, std::uint64_t lost) {
    const auto difference = block.cumulativeLost - static_cast<std::int64_t>(lost);
    return "  loss up to there: " + std::to_string(block.cumulativeLost) + " by the receiver, " +
           Number(lost, "by the network, difference ") + std::to_string(difference) + "\n";
}

std::string FaultLines(const SRtcpTally& rtcp) {
    std::string text;
    for (std::size_t i = 0; i < rtcp.faults.size(); ++i) {
        if (rtcp.faults[i] == 0) continue;
        text += "  bad RTCP: " + std::string(TextOf(static_cast<ERtcpFault>(i))) + " (" +
                std::to_string(rtcp.faults[i]) + ")\n";
    }
    return text;
}

}  // namespace

std::string FormatSummary(const SStreamSummary& summary) {
    const SRtcpTally& rtcp = summary.rtcp;
    std::string text = "korusim: " + summary.camera + ", stream " + std::to_string(summary.number) +
                       ": " + Number(summary.video.frames, "frames, ") +
                       Number(summary.video.packets, "packets, ") +
                       Number(summary.video.octets, "payload bytes\n");
    text += "  network: " + Number(summary.video.network.dropped, "lost, ") +
            Number(summary.video.network.duplicated, "doubled, ") +
            Number(summary.video.network.reordered, "delayed; ") +
            Number(summary.video.skippedFrames, "frames skipped, ") +
            Number(summary.refusedDatagrams, "datagrams refused by the system\n");
    text += "  RTCP: " + Number(summary.senderReports, "sender reports out; in: ") +
            Number(rtcp.datagrams, "datagrams, ") + Number(rtcp.reports, "reports, ") +
            Number(rtcp.blocks, "blocks on this stream, ") +
            Number(rtcp.otherBlocks, "on others, ") + Number(rtcp.byes, "goodbyes");
    if (!rtcp.name.empty()) text += ", from \"" + rtcp.name + "\"";
    text += "\n";
    if (rtcp.last) text += LastBlockLine(*rtcp.last);
    if (rtcp.last && summary.lostOfReported) {
        text += LossLine(*rtcp.last, *summary.lostOfReported);
    }
    if (!summary.endReason.empty()) text += "  " + summary.endReason + "\n";
    text += FaultLines(rtcp);
    if (summary.unknownSenders != 0) {
        text += "  " + Number(summary.unknownSenders, "RTCP datagrams from other senders\n");
    }
    return text;
}

}  // namespace korusim
