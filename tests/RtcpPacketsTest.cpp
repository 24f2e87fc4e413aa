#include "RtcpPackets.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/RtpPeers.h"

namespace {

using namespace qmx::cam;
using test::Big;
using Bytes = std::vector<std::uint8_t>;

Bytes ToBytes(std::span<const std::uint8_t> bytes) { return {bytes.begin(), bytes.end()}; }

constexpr SsrcBytes ssrc = {0xA1, 0xB2, 0xC3, 0xD4};

// A name of five characters leaves one byte for the end of the list; six need another word.
TEST(RtcpPackets, PadsTheName) {
    const CRtcpPackets five(ssrc, "abcde");
    EXPECT_EQ(ToBytes(five.InitialReport()),
              (Bytes{0x80, 201,  0,    1,    0xA1, 0xB2, 0xC3, 0xD4, 0x81, 202, 0,   3,
                     0xA1, 0xB2, 0xC3, 0xD4, 1,    5,    'a',  'b',  'c',  'd', 'e', 0}));
    const CRtcpPackets six(ssrc, "abcdef");
    EXPECT_EQ(ToBytes(six.InitialReport().subspan(8)),
              (Bytes{0x81, 202, 0,   4,   0xA1, 0xB2, 0xC3, 0xD4, 1, 6,
                     'a',  'b', 'c', 'd', 'e',  'f',  0,    0,    0, 0}));
    CRtcpPackets longest(ssrc, std::string(255, 'n'));
    EXPECT_EQ(longest.ReportWithBye({}, 0, 0).size(), 308u);
}

/// Returns a packet of some words after the first. The middle of its NTP time is "MIDL".
std::string Packet(char first, unsigned type, std::size_t words) {
    const std::string whole =
        first + Big(type, 1) + Big(words, 2) + "SSRCabMIDLyz" + std::string(12, 'x');
    return whole.substr(0, 4 * words + 4);
}

TEST(SenderReportReader, FindsWholeSenderReports) {
    const std::string report = Packet('\x80', 200, 6);
    struct {
        const char* name;
        std::string datagram;
        int reports;
    } const cases[] = {
        {"after another packet", Packet('\x81', 202, 2) + report, 1},
        {"past the end", report.substr(0, 27), 0},
        {"the second past the end", report + report.substr(0, 24), 1},
        {"the largest length", "\x80\xC8\xFF\xFF" + report.substr(4), 0},
        {"only its NTP time", Packet('\x80', 200, 3), 1},
        {"too short for its NTP time", Packet('\x80', 200, 2) + report, 1},
        {"another version", Packet('\x40', 200, 6) + Packet('\xC0', 200, 6) + report, 1},
        {"four bytes", Packet('\x80', 200, 0), 0},
        {"less than a header", report.substr(0, 3), 0},
        {"empty", "", 0},
    };
    std::uint32_t expected = 0;
    std::memcpy(&expected, "MIDL", 4);
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        // An exact allocation, so that a sanitizer sees a read past the end.
        const Bytes exact(row.datagram.begin(), row.datagram.end());
        CSenderReportReader walk(exact);
        int reports = 0;
        for (; const auto found = walk.Next(); ++reports) EXPECT_EQ(*found, expected);
        EXPECT_EQ(reports, row.reports);
        EXPECT_FALSE(walk.Next());
    }
}

}  // namespace
