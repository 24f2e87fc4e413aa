#include "RtcpPackets.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace qmx::cam;
using Bytes = std::vector<std::uint8_t>;

Bytes ToBytes(std::span<const std::uint8_t> bytes) { return {bytes.begin(), bytes.end()}; }

constexpr SsrcBytes ssrc = {0xA1, 0xB2, 0xC3, 0xD4};

// Written out by hand, so that a mistake made twice can't hide. Five characters of name fill their
// words but for one byte; six take a word more.
TEST(RtcpComposer, WritesItsPacketsByteForByte) {
    CRtcpComposer five(ssrc, "abcde");
    const Bytes description = {0x81, 202, 0,   3,   0xA1, 0xB2, 0xC3, 0xD4,
                               1,    5,   'a', 'b', 'c',  'd',  'e',  0};
    Bytes expected = {0x80, 201, 0, 1, 0xA1, 0xB2, 0xC3, 0xD4};
    expected.insert(expected.end(), description.begin(), description.end());
    EXPECT_EQ(ToBytes(five.Opening()), expected);

    std::uint32_t lastSenderReport = 0;
    std::memcpy(&lastSenderReport, "\x11\x22\x33\x44", 4);
    const SLossFigures figures = {0x01020304, 0x7F, 0xFFFFFE, 0x00020005};
    expected = {0x81, 201,  0,    7,    0xA1, 0xB2, 0xC3, 0xD4,   // header
                1,    2,    3,    4,                              // source
                0x7F, 0xFF, 0xFF, 0xFE,                           // fraction, 2 more than expected
                0,    2,    0,    5,                              // one wrap, number 5
                0,    0,    0,    0,                              // jitter
                0x11, 0x22, 0x33, 0x44, 0,    0x01, 0x80, 0x00};  // last SR, 1.5 s ago
    expected.insert(expected.end(), description.begin(), description.end());
    EXPECT_EQ(ToBytes(five.Report(figures, lastSenderReport, 0x18000)), expected);
    const Bytes bye = {0x81, 203, 0, 1, 0xA1, 0xB2, 0xC3, 0xD4};
    expected.insert(expected.end(), bye.begin(), bye.end());
    EXPECT_EQ(ToBytes(five.LastReport(figures, lastSenderReport, 0x18000)), expected);

    const CRtcpComposer six(ssrc, "abcdef");
    EXPECT_EQ(ToBytes(six.Opening().subspan(8)),
              (Bytes{0x81, 202, 0,   4,   0xA1, 0xB2, 0xC3, 0xD4, 1, 6,
                     'a',  'b', 'c', 'd', 'e',  'f',  0,    0,    0, 0}));
    CRtcpComposer longest(ssrc, std::string(255, 'n'));
    EXPECT_EQ(longest.LastReport(figures, 0, 0).size(), 308u);
}

/// A sub-packet of a length in words minus one, with an NTP time of 1, 2, 3 and so on.
Bytes Packet(std::uint8_t first, std::uint8_t type, std::uint8_t words) {
    Bytes bytes(4u * words + 4, 0);
    bytes[0] = first;
    bytes[1] = type;
    bytes[3] = words;
    for (std::size_t i = 8; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i - 7);
    return bytes;
}

TEST(SenderReportWalk, FindsWholeSenderReports) {
    const Bytes report = Packet(0x80, 200, 6);
    const Bytes other = Packet(0x81, 202, 2);
    const auto join = [](std::vector<Bytes> parts) {
        Bytes all;
        for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
        return all;
    };
    const auto cut = [](const Bytes& bytes, std::ptrdiff_t by) {
        return Bytes(bytes.begin(), bytes.end() - by);
    };
    struct {
        const char* name;
        Bytes datagram;
        int reports;
    } const cases[] = {
        {"one", report, 1},
        {"two", join({report, report}), 2},
        {"behind another", join({other, report}), 1},
        {"past the end", cut(report, 1), 0},
        {"the second past the end", cut(join({report, report}), 4), 1},
        {"a length beyond all", {0x80, 200, 0xFF, 0xFF, 0, 0, 0, 0}, 0},
        {"just its NTP time", Packet(0x80, 200, 3), 1},
        {"too short for its NTP time", join({Packet(0x80, 200, 2), report}), 1},
        {"four bytes", {0x80, 200, 0, 0}, 0},
        {"less than a header", {0x80, 200, 0}, 0},
        {"empty", {}, 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        // An exact allocation, so that a sanitizer sees a read past the end.
        const Bytes exact = row.datagram;
        CSenderReportWalk walk(exact);
        int reports = 0;
        while (const auto found = walk.Next()) {
            std::uint32_t expected = 0;
            std::memcpy(&expected, "\x03\x04\x05\x06", 4);
            EXPECT_EQ(*found, expected);
            ++reports;
        }
        EXPECT_EQ(reports, row.reports);
        EXPECT_FALSE(walk.Next());
    }
}

TEST(LossFigures, FollowTheSourceWithoutClamping) {
    struct {
        const char* name;
        SRtpSource source;
        SLossFigures figures;
    } const cases[] = {
        // ssrc, seen, max_seq, cycles, base_seq, bad_seq, probation, received, priors
        {"nothing seen", {}, {0, 0, 1, 0}},
        {"nothing lost", {9, 1, 19, 0, 10, 0, 0, 10, 0, 0}, {9, 0, 0, 19}},
        {"a quarter lost", {9, 1, 19, 0, 10, 0, 0, 8, 2, 2}, {9, 64, 2, 19}},
        {"only since the last time", {9, 1, 19, 0, 10, 0, 0, 5, 8, 3}, {9, 0, 5, 19}},
        {"all lost reads as none", {9, 1, 19, 0, 10, 0, 0, 5, 5, 5}, {9, 0, 5, 19}},
        {"more than expected", {9, 1, 19, 0, 10, 0, 0, 12, 0, 0}, {9, 0, 0xFFFFFE, 19}},
        {"across a wrap", {9, 1, 3, 65536, 65534, 0, 0, 5, 0, 0}, {9, 42, 1, 65539}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        SRtpSource source = row.source;
        const SLossFigures figures = TakeLossFigures(source);
        EXPECT_EQ(figures.ssrc, row.figures.ssrc);
        EXPECT_EQ(figures.fractionLost, row.figures.fractionLost);
        EXPECT_EQ(figures.cumulativeLost, row.figures.cumulativeLost);
        EXPECT_EQ(figures.extendedHighestSeq, row.figures.extendedHighestSeq);
        EXPECT_EQ(TakeLossFigures(source).fractionLost, 0) << "nothing has come since";
    }
}

}  // namespace
