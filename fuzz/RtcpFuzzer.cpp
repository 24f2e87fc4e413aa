// RTCP: reading compound packets, the loss figures of any source, and the composed packets.
//
// Input: bytes that serve as a compound packet, as the words of a source and as a name.
#include <array>
#include <cstring>

#include "FuzzInput.h"
#include "RtcpPackets.h"

namespace {

using namespace qmx::cam;
using Bytes = std::span<const std::uint8_t>;

std::vector<std::uint32_t> ReportsIn(Bytes compound) {
    const fuzz::ExactBytes bytes = fuzz::ExactCopy(compound);
    CSenderReportReader walk(bytes);
    std::vector<std::uint32_t> reports;
    while (const auto report = walk.Next()) reports.push_back(*report);
    FUZZ_REQUIRE(reports.size() <= compound.size() / 16);
    FUZZ_REQUIRE(!walk.Next());
    return reports;
}

void CheckWalk(Bytes compound) {
    const auto reports = ReportsIn(compound);
    // Truncation hides reports but creates none.
    for (const std::size_t cut : {std::size_t{1}, std::size_t{4}, compound.size() / 2}) {
        if (cut > compound.size()) continue;
        const auto fewer = ReportsIn(compound.first(compound.size() - cut));
        FUZZ_REQUIRE(fewer.size() <= reports.size());
        FUZZ_REQUIRE(std::equal(fewer.begin(), fewer.end(), reports.begin()));
    }
    // A valid report before them is found, and does not change the others.
    constexpr std::array<std::uint8_t, 28> good{0x80, 200, 0, 6, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    fuzz::ExactBytes both(good.begin(), good.end());
    both.insert(both.end(), compound.begin(), compound.end());
    const auto more = ReportsIn(both);
    FUZZ_REQUIRE(more.size() == reports.size() + 1);
    FUZZ_REQUIRE(std::memcmp(&more[0], &good[10], 4) == 0);
    FUZZ_REQUIRE(std::equal(reports.begin(), reports.end(), more.begin() + 1));
}

SReportBlock CheckLoss(fuzz::CFuzzInput& input) {
    SRtpSource source;
    for (std::uint32_t* word :
         {&source.ssrc, &source.cycles, &source.base_seq, &source.bad_seq, &source.probation,
          &source.received, &source.expected_prior, &source.received_prior}) {
        *word = input.Take<std::uint32_t>();
    }
    source.seen = input.Take<std::uint8_t>();
    source.max_seq = input.Take<std::uint16_t>();
    const SReportBlock figures = UpdateReportBlock(source);
    FUZZ_REQUIRE(figures.cumulativeLost <= 0xFFFFFF);
    const SReportBlock again = UpdateReportBlock(source);
    FUZZ_REQUIRE(again.fractionLost == 0);  // no packet since
    FUZZ_REQUIRE(again.cumulativeLost == figures.cumulativeLost);
    FUZZ_REQUIRE(again.extendedHighestSeq == figures.extendedHighestSeq);
    return figures;
}

/// Checks a composed packet: all parts have version 2, and their lengths add up.
void CheckComposed(Bytes packet, std::initializer_list<std::uint8_t> types) {
    FUZZ_REQUIRE(ReportsIn(packet).empty());
    for (const std::uint8_t type : types) {
        FUZZ_REQUIRE(packet.size() >= 8 && packet[0] >> 6 == 2 && packet[1] == type);
        const std::size_t size = 4 * (std::size_t{packet[2]} * 256 + packet[3] + 1);
        FUZZ_REQUIRE(size <= packet.size());
        packet = packet.subspan(size);
    }
    FUZZ_REQUIRE(packet.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::CFuzzInput input(data, size);
    const SReportBlock figures = CheckLoss(input);
    // Possibly longer than any host name, with any contents.
    const fuzz::ExactBytes name = fuzz::ExactCopy({data, size});
    CRtcpPackets composer({0xFF, 0xFF, 0xFF, 0xFF}, fuzz::AsText(name));
    CheckComposed(composer.InitialReport(), {201, 202});
    CheckComposed(composer.Report(figures, 0xFFFFFFFF, 0), {201, 202});
    CheckComposed(composer.ReportWithBye(figures, 1, 0xFFFFFFFF), {201, 202, 203});
    CheckComposed(composer.Report(figures, 0, 1), {201, 202});
    CheckWalk({data, size});
    return 0;
}
