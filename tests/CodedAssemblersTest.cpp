// Assembly of the two coded payload kinds. The raw kind tests what all kinds share.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FrameAssembler.h"

namespace {

using namespace qmx::cam;
using Bytes = std::vector<std::uint8_t>;

struct SPacket {
    std::uint16_t sequence;
    std::uint32_t timestamp;
    bool marker;
    Bytes payload;
};

/// Returns the frame that the last of several packets delivers.
std::optional<Bytes> Deliver(auto& assembler, const std::vector<SPacket>& packets) {
    std::optional<Bytes> last;
    for (const SPacket& packet : packets) {
        const auto frame =
            assembler.Add({packet.marker, packet.sequence, packet.timestamp, 0, packet.payload});
        last.reset();
        if (frame) last.emplace(frame->begin(), frame->end());
    }
    return last;
}

const Bytes mjlsStart = {1, 2, 3, 4, 0xFF, 0xD8, 0xFF, 0xF7, 5};

TEST(MjlsAssembler, JoinsPieces) {
    const Bytes shifted = {0xFF, 0xD8, 0xFF, 0xF7, 0, 0, 0, 0};
    const Bytes eight = {1, 2, 3, 4, 0xFF, 0xD8, 0xFF, 0xF7};
    Bytes joined = mjlsStart;
    joined.insert(joined.end(), {7, 8});
    Bytes withStart = mjlsStart;
    withStart.insert(withStart.end(), mjlsStart.begin(), mjlsStart.end());
    struct {
        const char* name;
        std::vector<SPacket> packets;
        std::optional<Bytes> frame;
    } const cases[] = {
        {"one packet", {{1, 1, true, mjlsStart}}, mjlsStart},
        {"only the start", {{1, 1, true, eight}}, eight},
        {"pieces", {{1, 1, false, mjlsStart}, {2, 1, false, {7}}, {3, 1, true, {8}}}, joined},
        {"an empty piece can end it",
         {{1, 1, false, mjlsStart}, {2, 1, false, {7, 8}}, {3, 1, true, {}}},
         joined},
        {"the four bytes inside a frame",
         {{1, 1, false, mjlsStart}, {2, 1, true, mjlsStart}},
         withStart},
        {"nothing before the four bytes", {{1, 1, true, shifted}}, std::nullopt},
        {"too short to begin", {{1, 1, true, {1, 2, 3, 4, 0xFF, 0xD8, 0xFF}}}, std::nullopt},
        {"a gap", {{1, 1, false, mjlsStart}, {3, 1, true, {7}}}, std::nullopt},
        {"a new time without a start", {{1, 1, false, mjlsStart}, {2, 2, true, {7}}}, std::nullopt},
        {"a new start abandons", {{1, 1, false, mjlsStart}, {2, 2, true, mjlsStart}}, mjlsStart},
        {"the next frame", {{1, 1, true, mjlsStart}, {2, 1, true, mjlsStart}}, mjlsStart},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        CMjlsDepacketizer assembler;
        EXPECT_EQ(Deliver(assembler, row.packets), row.frame);
    }
}

// A camera that never sends a marker must not exhaust the host's memory, and its next frame is
// delivered. So is a frame of exactly the limit.
TEST(MjlsAssembler, AFrameWithoutEndIsGivenUp) {
    constexpr std::size_t limit = 0x2000000;
    CMjlsDepacketizer assembler;
    const Bytes piece(1 << 20, 9);  // larger than any datagram, to be fast under the sanitizers
    for (const std::size_t length : {limit, limit + 1}) {
        std::uint16_t sequence = 0;
        ASSERT_FALSE(Deliver(assembler, {{0, 1, false, mjlsStart}}));
        std::size_t sent = mjlsStart.size();
        for (; sent + piece.size() < length; sent += piece.size()) {
            ASSERT_FALSE(assembler.Add({false, ++sequence, 1, 0, piece}));
        }
        const auto rest = std::span(piece).first(length - sent);
        const auto frame = assembler.Add({true, ++sequence, 1, 0, rest});
        ASSERT_EQ(frame.has_value(), length == limit);
        EXPECT_EQ(frame ? frame->size() : limit, limit);
        EXPECT_FALSE(Deliver(assembler, {{++sequence, 1, true, piece}}));
        EXPECT_EQ(Deliver(assembler, {{++sequence, 2, true, mjlsStart}}), mjlsStart);
    }
}

/// Payload of a JPEG stream: main header of an 8 by 8 picture, then the rest.
Bytes Jpeg(std::uint32_t offset, std::uint8_t type, std::uint8_t quality, const Bytes& rest) {
    Bytes payload = {0xEE,
                     static_cast<std::uint8_t>(offset >> 16),
                     static_cast<std::uint8_t>(offset >> 8),
                     static_cast<std::uint8_t>(offset),
                     type,
                     quality,
                     1,
                     1};
    payload.insert(payload.end(), rest.begin(), rest.end());
    return payload;
}

/// Quantisation table header with its tables of ones and twos, then the data.
Bytes Tables(std::uint16_t length, const Bytes& data) {
    Bytes bytes = {0, 0, static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length)};
    bytes.insert(bytes.end(), 64, 1);
    bytes.insert(bytes.end(), 64, 2);
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

/// Returns the headers that belong to such packets, followed by data.
Bytes Expected(std::uint8_t type, int quality, std::uint16_t restartInterval, const Bytes& data) {
    QuantTable lqt;
    QuantTable cqt;
    std::fill_n(lqt, 64, std::uint8_t{1});
    std::fill_n(cqt, 64, std::uint8_t{2});
    if (quality < 128) MakeTables(static_cast<std::uint8_t>(quality), lqt, cqt);
    Bytes bytes(700);
    bytes.resize(MakeHeaders(bytes.data(), {type, 1, 1, restartInterval}, lqt, cqt));
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

TEST(MjpgAssembler, PutsFragmentsAfterGeneratedHeaders) {
    Bytes far(0x010204);
    far.front() = 7;
    far.back() = 8;
    struct {
        const char* name;
        std::vector<SPacket> packets;
        std::optional<Bytes> frame;
    } const cases[] = {
        {"one packet", {{1, 1, true, Jpeg(0, 0, 50, {7, 8})}}, Expected(0, 50, 0, {7, 8})},
        {"fragments",
         {{1, 1, false, Jpeg(0, 1, 99, {7, 8})}, {2, 1, true, Jpeg(2, 1, 99, {9})}},
         Expected(1, 99, 0, {7, 8, 9})},
        {"restart markers in every packet",
         {{1, 1, false, Jpeg(0, 65, 50, {1, 2, 0xFF, 0xFF, 7})},
          {2, 1, true, Jpeg(1, 65, 50, {3, 4, 0xFF, 0xFF, 8})}},
         Expected(1, 50, 0x0102, {7, 8})},
        {"tables in the packet",
         {{1, 1, true, Jpeg(0, 0, 255, Tables(128, {7}))}},
         Expected(0, 255, 0, {7})},
        {"tables without data",
         {{1, 1, true, Jpeg(0, 0, 128, Tables(128, {}))}},
         Expected(0, 128, 0, {})},
        {"restart header without data",
         {{1, 1, true, Jpeg(0, 64, 50, {0, 1, 0, 0})}},
         Expected(0, 50, 1, {})},
        {"too short for its restart header", {{1, 1, true, Jpeg(0, 64, 50, {0, 1, 0})}}, {}},
        {"type 63", {{1, 1, true, Jpeg(0, 63, 50, {7})}}, Expected(63, 50, 0, {7})},
        {"types 128 and 255",
         {{1, 1, false, Jpeg(0, 128, 50, {7})}, {2, 1, true, Jpeg(1, 255, 50, {8})}},
         Expected(128, 50, 0, {7, 8})},
        {"type 192", {{1, 1, true, Jpeg(0, 192, 50, {7})}}, Expected(192, 50, 0, {7})},
        {"Q without tables", {{1, 1, true, Jpeg(0, 0, 127, {7})}}, Expected(0, 127, 0, {7})},
        {"tables after a restart header",
         {{1, 1, true,
           [] {
               Bytes rest = {0, 5, 0, 0};
               const Bytes tables = Tables(128, {7});
               rest.insert(rest.end(), tables.begin(), tables.end());
               return Jpeg(0, 127, 128, rest);
           }()}},
         Expected(63, 255, 5, {7})},
        {"Q counts in the first fragment only",
         {{1, 1, false, Jpeg(0, 0, 50, {7})}, {2, 1, true, Jpeg(1, 9, 255, {8})}},
         Expected(0, 50, 0, {7, 8})},
        {"bytes that an offset skips are zero",
         {{1, 1, true, Jpeg(0, 0, 50, Bytes(9, 0x55))},
          {2, 2, false, Jpeg(0, 0, 50, {7})},
          {3, 2, true, Jpeg(4, 0, 50, {8})}},
         Expected(0, 50, 0, {7, 0, 0, 0, 8})},
        {"an offset of 24 bits",
         {{1, 1, false, Jpeg(0, 0, 50, {7})}, {2, 1, true, Jpeg(0x010203, 0, 50, {8})}},
         Expected(0, 50, 0, far)},
        {"an offset that goes back",
         {{1, 1, false, Jpeg(0, 0, 50, {1, 2, 3})}, {2, 1, true, Jpeg(1, 0, 50, {9})}},
         Expected(0, 50, 0, {1, 9, 3})},
        {"no start", {{1, 1, true, Jpeg(1, 0, 50, {7})}}, std::nullopt},
        {"tables of another length", {{1, 1, true, Jpeg(0, 0, 128, Tables(64, {}))}}, std::nullopt},
        {"tables of 16 bits",
         {{1, 1, true, Jpeg(0, 0, 128, Tables(256, Bytes(128)))}},
         std::nullopt},
        {"tables known from before", {{1, 1, true, Jpeg(0, 0, 255, Tables(0, {}))}}, std::nullopt},
        {"a bad length costs the frame",
         {{1, 1, false, Jpeg(0, 0, 128, Tables(64, {}))}, {2, 1, true, Jpeg(1, 0, 50, {7})}},
         std::nullopt},
        {"too short for its tables",
         {{1, 1, true, Jpeg(0, 0, 128, {0, 0, 0, 128, 1})}},
         std::nullopt},
        {"too short for a main header", {{1, 1, true, {0, 0, 0, 0, 0, 50, 1}}}, std::nullopt},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        CMjpgDepacketizer assembler;
        EXPECT_EQ(Deliver(assembler, row.packets), row.frame);
    }
}

}  // namespace
