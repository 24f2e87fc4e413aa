#include "FrameStamp.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace framestamp;
using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
Bytes Part(const Bytes& bytes, std::size_t from, std::size_t to) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from),
            bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

TEST(FrameStamp, DetectsEveryChangedByteOfALosslessPicture) {
    Bytes picture(2 * 40, 0x5A);
    WriteStamp(picture, 0xFEDCBA98);
    EXPECT_EQ(ReadStamp(picture).state, EStamp::Good);
    EXPECT_EQ(ReadStamp(picture).number, 0xFEDCBA98);
    for (std::size_t i = 0; i < picture.size(); ++i) {
        Bytes damaged = picture;
        damaged[i] ^= 0x10;
        EXPECT_NE(ReadStamp(damaged).state, EStamp::Good) << i;
    }
    EXPECT_EQ(ReadStamp(Part(picture, 0, 78)).state, EStamp::Damaged);
    EXPECT_EQ(ReadStamp(Part(picture, 0, 11)).state, EStamp::Absent);
    EXPECT_EQ(ReadStamp(Bytes(80)).state, EStamp::Absent);
}

/// Returns a grey picture with a block stamp.
Bytes Blocks(std::size_t width, std::size_t height, std::uint32_t number) {
    Bytes picture(width * height, 100);
    WriteBlockStamp({picture, width}, number);
    return picture;
}

TEST(FrameStamp, DetectsAPictureThatIsCutShiftedOrMixed) {
    constexpr std::size_t width = 320;
    constexpr std::size_t height = 240;
    const Bytes one = Blocks(width, height, 41);
    const Bytes two = Blocks(width, height, 42);
    const auto rows = [](const Bytes& picture, std::size_t from, std::size_t to) {
        return Part(picture, from * width, to * width);
    };
    struct {
        const char* name;
        Bytes picture;
        std::size_t width;
        EStamp state;
    } const cases[] = {
        {"whole", one, width, EStamp::Good},
        {"none", Bytes(width * height, 100), width, EStamp::Absent},
        {"cut", rows(one, 0, 200), width, EStamp::Damaged},
        {"cut, the rest grey", rows(one, 0, 200) + Bytes(40 * width, 128), width, EStamp::Damaged},
        {"moved", rows(one, 0, 64) + rows(one, 72, 240) + rows(one, 232, 240), width,
         EStamp::Damaged},
        {"another's lower half", rows(one, 0, 120) + rows(two, 120, 240), width, EStamp::Damaged},
    };
    for (const auto& row : cases) {
        const SStamp stamp = ReadBlockStamp({row.picture, row.width});
        EXPECT_EQ(stamp.state, row.state) << row.name;
        EXPECT_TRUE(row.state != EStamp::Good || stamp.number == 41) << row.name;
    }
}

}  // namespace
