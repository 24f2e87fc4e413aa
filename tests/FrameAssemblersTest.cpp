#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FrameAssembler.h"

namespace {

using namespace qmx::cam;
using Bytes = std::vector<std::uint8_t>;

void PutBig16(Bytes& to, std::uint32_t word) {
    to.push_back(static_cast<std::uint8_t>(word >> 8));
    to.push_back(static_cast<std::uint8_t>(word));
}

/// Payload of an uncompressed stream: one header per continuation word, then the pixel bytes.
Bytes Zraw(std::uint32_t lineLength, std::uint32_t lineNumber,
           const std::vector<std::uint16_t>& continuation, const Bytes& pixels) {
    Bytes payload;
    PutBig16(payload, 0xABCD);
    for (const std::uint16_t word : continuation) {
        PutBig16(payload, lineLength);
        PutBig16(payload, lineNumber);
        PutBig16(payload, word);
    }
    payload.insert(payload.end(), pixels.begin(), pixels.end());
    return payload;
}

/// Passes packets to one depacketizer. Returns a delivered frame as hexadecimal text, "-" for none.
class CFeed {
   public:
    std::string operator()(std::uint16_t sequence, std::uint32_t timestamp, bool marker,
                           const Bytes& payload) {
        const auto frame = assembler.Add({marker, sequence, timestamp, 0, payload});
        if (!frame) return "-";
        std::string text;
        char digits[3];
        for (const std::uint8_t byte : *frame) {
            std::snprintf(digits, sizeof(digits), "%02x", byte);
            text += digits;
        }
        return text;
    }

   private:
    CZrawDepacketizer assembler;
};

TEST(ZrawAssembler, FindsHeadersAndPixels) {
    const Bytes six = {1, 2, 3, 4, 5, 6};
    struct {
        const char* name;
        Bytes payload;
        const char* frame;
    } const cases[] = {
        {"one line", Zraw(2, 0, {0}, {1, 2, 3, 4}), "01020304"},
        {"the top bit of the line number", Zraw(2, 0x8000, {0}, {1, 2, 3, 4}), "01020304"},
        {"two lines", Zraw(2, 0, {0x8000, 0}, {1, 2, 3, 4, 5, 6, 7, 8}), "0102030405060708"},
        {"low bits continue too", Zraw(1, 0, {1, 0}, {1, 2, 3, 4}), "01020304"},
        {"14 bytes are one header", Zraw(3, 0, {1}, six), "010203040506"},
        {"15 bytes show a second", Zraw(3, 0, {1, 0}, {9}), "09"},
        {"no sixth header", Zraw(3, 0, {1, 1, 1, 1, 1}, {1, 2, 3, 4, 5, 6, 7, 8}),
         "0102030405060708"},
        {"fewer pixels than announced", Zraw(4, 0, {0}, {1, 2, 3}), "010203"},
        {"more pixels than announced", Zraw(1, 0, {0}, {1, 2, 3}), "0102"},
        {"no pixels", Zraw(2, 0, {0}, {}), ""},
        {"no line length", Zraw(0, 0, {0}, {1, 2}), ""},
        {"no frame start", Zraw(2, 1, {0}, {1, 2, 3, 4}), "-"},
        {"too short", {0, 0, 0, 2, 0, 0, 0}, "-"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(CFeed()(1, 1, true, row.payload), row.frame);
    }
}

TEST(ZrawAssembler, PlacesLinesAndKeepsTheBuffer) {
    CFeed feed;
    // 3 pixels: room for 6 lines of 6 bytes, which are zero until they are written.
    EXPECT_EQ(feed(1, 1, false, Zraw(3, 0, {0}, {1, 1, 1, 1, 1, 1})), "-");
    EXPECT_EQ(feed(2, 1, true, Zraw(3, 2, {0}, {3, 3, 3, 3, 3, 3})),
              "010101010101000000000000030303030303");
    // The last line fits partly, the one after it not at all.
    EXPECT_EQ(feed(3, 2, false, Zraw(3, 0, {0}, {4, 4})), "-");
    EXPECT_EQ(feed(4, 2, true, Zraw(3, 5, {1, 0}, {5, 5, 5, 5, 5, 5, 6, 6, 6, 6, 6, 6})).size(),
              72u);
    EXPECT_EQ(feed(5, 3, false, Zraw(3, 0, {0}, {4, 4})), "-");
    EXPECT_EQ(feed(6, 3, true, Zraw(3, 32767, {0}, {7, 7})), "");
    // A shorter line keeps the buffer with its old bytes; offsets follow from its length.
    EXPECT_EQ(feed(7, 4, false, Zraw(1, 0, {0}, {8, 8})), "-");
    EXPECT_EQ(feed(8, 4, true, Zraw(1, 2, {0}, {9, 9})), "080801010909");
    // A marker without pixels ends the frame with no bytes.
    EXPECT_EQ(feed(9, 5, false, Zraw(1, 0, {0}, {8, 8})), "-");
    EXPECT_EQ(feed(10, 5, true, Zraw(1, 1, {0}, {})), "");
}

// The buffer has twice as many lines as a line has pixels. The doubled length wraps at 16 bits, the
// size at 32 bits; the limit is 32 MiB. Pixels beyond the buffer are cut off.
TEST(ZrawAssembler, SizesItsBufferByTheLineLength) {
    struct {
        std::uint32_t lineLength;
        std::uint32_t lineNumber;
        std::size_t pixelBytes;
        std::size_t delivered;
    } const cases[] = {
        {2895, 5789, 5790, 33524100},   {2895, 5790, 5790, 0},
        {32767, 512, 65534, 0x2000000}, {32767, 513, 65534, 0},
        {32768, 0, 65536, 0},           {32769, 1, 65538, 131076},
        {32769, 2, 65538, 0},           {53020, 0, 106040, 76864},
        {65535, 255, 131070, 33553920}, {65535, 256, 131070, 0x2000000},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(std::to_string(row.lineLength) + ", " + std::to_string(row.lineNumber));
        CZrawDepacketizer assembler;
        const Bytes start = Zraw(row.lineLength, 0, {0}, {});
        const Bytes line = Zraw(row.lineLength, row.lineNumber, {0}, Bytes(row.pixelBytes, 7));
        ASSERT_FALSE(assembler.Add({false, 1, 1, 0, start}));
        const auto frame = assembler.Add({true, 2, 1, 0, line});
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->size(), row.delivered);
    }
}

// No frame may expose earlier contents of the host's memory, neither at its first size nor when it
// grows.
TEST(ZrawAssembler, NewMemoryIsZero) {
    CFeed feed;
    std::uint16_t sequence = 0;
    for (const std::uint32_t lineLength : {64u, 128u}) {
        const Bytes line(2 * lineLength, 0xAA);
        EXPECT_EQ(feed(++sequence, lineLength, false, Zraw(lineLength, 60, {0}, line)), "-");
        EXPECT_EQ(feed(++sequence, lineLength, false, Zraw(lineLength, 0, {0}, line)), "-");
        const std::string frame =
            feed(++sequence, lineLength, true, Zraw(lineLength, 2 * lineLength - 1, {0}, line));
        const std::size_t lineDigits = 4 * lineLength;
        const std::string last = frame.substr((2 * lineLength - 2) * lineDigits);
        EXPECT_EQ(last, std::string(lineDigits, '0') + std::string(lineDigits, 'a'));
    }
}

struct SGateStep {
    std::uint16_t sequence;
    std::uint32_t timestamp;
    bool frameStart;
    bool marker;
    const char* frame;
};

// The loss policy of all payload kinds. A frame start writes 11 to line 0, any other packet 22 to
// line 1, so that a delivered frame shows which packets were accepted.
TEST(FrameGate, DeliversWholeFramesOnly) {
    const std::pair<const char*, std::vector<SGateStep>> cases[] = {
        {"in order", {{1, 5, true, false, "-"}, {2, 5, false, true, "11112222"}}},
        {"across the wrap", {{65535, 5, true, false, "-"}, {0, 5, false, true, "11112222"}}},
        {"nothing before a start", {{1, 5, false, true, "-"}, {2, 5, true, true, "1111"}}},
        {"a gap", {{1, 5, true, false, "-"}, {3, 5, false, true, "-"}, {4, 5, false, true, "-"}}},
        {"a duplicate",
         {{1, 5, true, false, "-"}, {1, 5, true, false, "-"}, {2, 5, false, true, "-"}}},
        {"a start of the same time after a gap",
         {{1, 5, true, false, "-"}, {3, 5, false, false, "-"}, {4, 5, true, true, "1111"}}},
        {"the marker is lost",
         {{1, 5, true, false, "-"}, {3, 6, true, false, "-"}, {4, 6, false, true, "11112222"}}},
        {"a new time without a start",
         {{1, 5, true, false, "-"}, {2, 6, false, true, "-"}, {3, 5, false, true, "-"}}},
        {"after a frame only a start counts",
         {{1, 5, true, true, "1111"}, {2, 5, false, true, "-"}, {9, 5, true, true, "1111"}}},
        {"two frames without their markers",
         {{1, 5, true, false, "-"}, {3, 6, true, false, "-"}, {5, 7, true, true, "1111"}}},
    };
    for (const auto& [name, steps] : cases) {
        SCOPED_TRACE(name);
        CFeed feed;
        for (const SGateStep& step : steps) {
            const Bytes payload =
                step.frameStart ? Zraw(1, 0, {0}, {0x11, 0x11}) : Zraw(1, 1, {0}, {0x22, 0x22});
            EXPECT_EQ(feed(step.sequence, step.timestamp, step.marker, payload), step.frame);
        }
    }
}

}  // namespace
