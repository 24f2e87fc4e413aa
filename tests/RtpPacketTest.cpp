#include "RtpPacket.h"

#include <gtest/gtest.h>

#include <vector>

#include "RtpSource.h"

namespace {

using namespace qmx::cam;

/// A datagram whose first byte is given and whose byte i is i beyond the header fields.
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
        std::uint16_t extensionWords;  // written behind the CSRC list
        int payloadAt;                 // -1: refused
    } const cases[] = {
        {"shortest", 0x80, 20, 0, 12},
        {"too short", 0x80, 19, 0, -1},
        {"empty", 0x80, 0, 0, -1},
        {"another version", 0x40, 40, 0, -1},
        {"three CSRCs", 0x83, 40, 0, 24},
        {"padding is not looked at", 0xA0, 40, 0, 12},
        {"CSRC list to the end", 0x82, 20, 0, 20},
        {"CSRC list past the end", 0x83, 20, 0, -1},
        {"an extension", 0x90, 40, 2, 24},
        {"CSRCs and an extension", 0x92, 40, 1, 28},
        {"extension to the end", 0x90, 40, 6, 40},
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

struct SSourceCase {
    const char* name;
    std::vector<std::uint16_t> sequences;
    std::uint32_t base_seq;
    std::uint16_t max_seq;
    std::uint32_t cycles;
    std::uint32_t bad_seq;
    std::uint32_t probation;
    std::uint32_t received;
};

TEST(RtpSource, CountsAsTheStandardButForTheFirstPacket) {
    const SSourceCase cases[] = {
        {"the first packet only", {100}, 100, 99, 0, 65537, 2, 0},
        {"the second doesn't fit the first", {100, 101}, 100, 101, 0, 65537, 1, 0},
        {"three end the probation", {100, 101, 102}, 102, 102, 0, 65537, 0, 1},
        {"the first number again counts down", {100, 100, 101}, 101, 101, 0, 65537, 0, 1},
        {"a gap begins anew", {100, 101, 103, 104}, 104, 104, 0, 65537, 0, 1},
        {"the wrap is no successor", {65534, 65535, 0}, 65534, 0, 0, 65537, 1, 0},
        {"behind the wrap", {65534, 65535, 0, 1}, 1, 1, 0, 65537, 0, 1},
        {"a wrap when counted", {65533, 65534, 65535, 2}, 65535, 2, 65536, 65537, 0, 2},
        {"largest gap", {0, 1, 2, 3001}, 2, 3001, 0, 65537, 0, 2},
        {"a large jump", {0, 1, 2, 3002}, 2, 2, 0, 3003, 0, 1},
        {"two in a row after it", {0, 1, 2, 3002, 3003}, 3003, 3003, 0, 65537, 0, 1},
        {"not in a row", {0, 1, 2, 3002, 3004}, 2, 2, 0, 3005, 0, 1},
        {"a jump to the last number", {0, 1, 2, 40000, 65437, 65437}, 2, 2, 0, 65438, 0, 1},
        {"bad_seq wraps", {30000, 30001, 30002, 65535, 0}, 0, 0, 0, 65537, 0, 1},
        {"late", {998, 999, 1000, 901}, 1000, 1000, 0, 65537, 0, 2},
        {"too late", {998, 999, 1000, 900}, 1000, 1000, 0, 901, 0, 1},
        {"a duplicate", {998, 999, 1000, 1000}, 1000, 1000, 0, 65537, 0, 2},
    };
    for (const SSourceCase& row : cases) {
        SCOPED_TRACE(row.name);
        SRtpSource source;
        bool firstPacket = true;
        std::uint32_t ssrc = 7;
        for (const std::uint16_t sequence : row.sequences) {
            UpdateSource(source, firstPacket, sequence, ssrc++);
        }
        EXPECT_EQ(source.ssrc, 7u);
        EXPECT_EQ(source.seen, 1);
        EXPECT_EQ(source.base_seq, row.base_seq);
        EXPECT_EQ(source.max_seq, row.max_seq);
        EXPECT_EQ(source.cycles, row.cycles);
        EXPECT_EQ(source.bad_seq, row.bad_seq);
        EXPECT_EQ(source.probation, row.probation);
        EXPECT_EQ(source.received, row.received);
    }
}

}  // namespace
