#include "RtpPacket.h"

#include <gtest/gtest.h>

#include <vector>

#include "RtcpPackets.h"
#include "RtpSource.h"

namespace {

using namespace qmx::cam;

/// Returns a datagram with the given first byte, whose other bytes have their index as value.
std::vector<std::uint8_t> Datagram(std::uint8_t first, std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i);
    if (size > 0) bytes[0] = first;
    return bytes;
}

TEST(RtpPacket, FindsThePayloadOrRefuses) {
    struct {
        const char* name;
        std::uint8_t first;
        std::size_t size;
        std::uint16_t extensionWords;  // written after the CSRC list
        int payloadAt;                 // -1: refused
    } const cases[] = {
        {"shortest", 0x80, 20, 0, 12},
        {"too short", 0x80, 19, 0, -1},
        {"empty", 0x80, 0, 0, -1},
        {"another version", 0x40, 40, 0, -1},
        {"three CSRCs", 0x83, 40, 0, 24},
        {"padding is ignored", 0xA0, 40, 0, 12},
        {"CSRC list to the end", 0x82, 20, 0, 20},
        {"fifteen CSRCs to the end", 0x8F, 72, 0, 72},
        {"CSRC list past the end", 0x83, 20, 0, -1},
        {"an extension", 0x90, 40, 2, 24},
        {"CSRCs and an extension", 0x92, 40, 1, 28},
        {"extension to the end", 0x90, 40, 6, 40},
        {"extension header to the end", 0x91, 20, 0, 20},
        {"extension past the end", 0x90, 40, 7, -1},
        {"largest extension", 0x90, 40, 0xFFFF, -1},
        {"extension header past the end", 0x92, 20, 0, -1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        std::vector<std::uint8_t> bytes = Datagram(row.first, row.size);
        const std::size_t extensionAt = 12 + 4u * (row.first & 15u);
        if ((row.first & 0x10) != 0 && extensionAt + 4 <= bytes.size()) {
            bytes[extensionAt + 2] = static_cast<std::uint8_t>(row.extensionWords >> 8);
            bytes[extensionAt + 3] = static_cast<std::uint8_t>(row.extensionWords);
        }
        const auto packet = ParseRtpPacket(bytes);
        ASSERT_EQ(packet.has_value(), row.payloadAt >= 0);
        if (!packet) continue;
        EXPECT_EQ(packet->payload.data() - bytes.data(), row.payloadAt);
        EXPECT_EQ(packet->payload.data() + packet->payload.size(), bytes.data() + bytes.size());
        EXPECT_FALSE(packet->marker);
        EXPECT_EQ(packet->sequence, 0x0203);
        EXPECT_EQ(packet->timestamp, 0x04050607u);
        EXPECT_EQ(packet->ssrc, 0x08090A0Bu);
    }
    std::vector<std::uint8_t> marked = Datagram(0x80, 20);
    marked[1] = 0xE0;
    EXPECT_TRUE(ParseRtpPacket(marked)->marker);
}

// The first two packets of a run only begin the probation; the third in sequence ends it and is the
// first to count. The figures after more packets reveal the state for that and for a jump.
TEST(RtpSource, CountsAsTheStandardExceptForTheFirstPackets) {
    struct {
        const char* name;
        std::vector<std::vector<std::uint16_t>>
            sequences;          // before the first report, before the second
        std::uint32_t highest;  // extended by the wraps
        std::int32_t lost;
        int fraction = 0;  // of 256, since the previous report
    } const cases[] = {
        {"the first packet is not counted", {{100}}, 99, 0},
        {"nor is the second", {{100, 101}}, 101, 2},
        {"three end the probation", {{100, 101, 102}}, 102, 0},
        {"a loss right after it", {{100, 101, 102, 104}}, 104, 1, 85},
        {"the first number repeated counts down", {{100, 100, 101, 103}}, 103, 1, 85},
        {"a gap restarts the probation", {{100, 101, 103, 104, 106}}, 106, 1, 85},
        {"the wrap does not continue a sequence", {{65534, 65535, 0}}, 0, -65533},
        {"after the wrap", {{65534, 65535, 0, 1, 3}}, 3, 1, 85},
        {"a wrap when counted", {{65533, 65534, 65535, 2}}, 65538, 2, 128},
        {"largest gap", {{0, 1, 2, 3001}}, 3001, 2998, 255},
        {"a large jump", {{0, 1, 2, 3002}}, 2, 0},
        {"two in a row after it", {{0, 1, 2, 3002, 3003, 3005}}, 3005, 1, 85},
        {"an old number is not a restart", {{0, 1, 2, 3002, 3003, 3200, 3003}}, 3200, 196, 253},
        {"not in a row", {{0, 1, 2, 3002, 3004, 3}}, 3, 0},
        {"a jump to the last number", {{0, 1, 2, 40000, 65437, 65437}}, 2, 0},
        {"a jump across the wrap", {{30000, 30001, 30002, 65535, 0}}, 0, 0},
        {"a restart clears the wraps", {{65533, 65534, 65535, 2, 40000, 40001}}, 40001, 0},
        {"a restart, then a report",
         {{65533, 65534, 65535, 2}, {40000, 40001, 40010}},
         40010,
         8,
         204},
        {"a report covers the time since the last",
         {{100, 101, 102, 105}, {106, 107, 109}},
         109,
         3,
         64},
        {"late", {{998, 999, 1000, 901}}, 1000, -1},
        {"too late", {{998, 999, 1000, 900}}, 1000, 0},
        {"a duplicate", {{998, 999, 1000, 1000}}, 1000, -1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        SRtpSource source;
        bool firstPacket = true;
        std::uint32_t ssrc = 7;
        SReportBlock figures{};
        for (const auto& sequences : row.sequences) {
            for (const std::uint16_t sequence : sequences) {
                UpdateSource(source, firstPacket, sequence, ssrc++);
            }
            figures = UpdateReportBlock(source);
        }
        EXPECT_EQ(figures.ssrc, 7u);
        EXPECT_EQ(figures.extendedHighestSeq, row.highest);
        EXPECT_EQ(figures.cumulativeLost, static_cast<std::uint32_t>(row.lost) & 0xFFFFFF);
        EXPECT_EQ(figures.fractionLost, row.fraction);
    }
}

}  // namespace
