// The parts of a live view that need no window.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <thread>

#include "Mailbox.h"
#include "Region.h"
#include "ToneMap.h"

namespace {

using namespace frames;
using Pixels = std::vector<std::uint16_t>;

TEST(Histogram, FindsTheLevelsOfAPicture) {
    Pixels ramp(1000);
    std::iota(ramp.begin(), ramp.end(), std::uint16_t{7000});
    Pixels hotPixel(1000, 500);
    hotPixel[17] = 65535;
    const struct {
        const char* name;
        Pixels pixels;
        std::size_t step;
        double percent;
        double low;
        double high;
    } cases[] = {
        {"all values", ramp, 1, 0, 7000, 7999},
        {"one in a hundred at either end", ramp, 1, 1, 7010, 7990},
        {"every fourth pixel", ramp, 4, 1, 7008, 7988},
        {"a single hot pixel does not count", hotPixel, 1, 0.2, 500, 500},
        {"unless nothing is left out", hotPixel, 1, 0, 500, 65535},
        {"all equal", Pixels(9, 7188), 1, 1, 7188, 7188},
        {"the extremes", {0, 65535}, 1, 0, 0, 65535},
        {"no pixels", {}, 1, 1, 0, 0},
    };
    CHistogram histogram;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        histogram.Count(row.pixels, row.step);
        EXPECT_EQ(histogram.total(), (row.pixels.size() + row.step - 1) / row.step);
        const SLevels levels = histogram.Percentile(row.percent);
        EXPECT_EQ(levels.low, row.low);
        EXPECT_EQ(levels.high, row.high);
    }
}

TEST(Histogram, AutomaticLevelsSettleWithoutAJump) {
    CHistogram dark;
    CHistogram bright;
    dark.Count(Pixels(100, 1000), 1);
    bright.Count(Pixels(100, 2000), 1);
    CAutomaticLevels levels;
    EXPECT_EQ(levels.Follow(dark, 0, 0).low, 1000) << "the first picture counts at once";
    EXPECT_EQ(levels.Follow(bright, 0, 0).low, 1000);
    double last = 1000;
    for (int i = 0; i < 60; ++i) {  // a second at 60 frames/s
        const double low = levels.Follow(bright, 0, 1 / 60.0).low;
        EXPECT_TRUE(low > last && low - last < 80) << i << ": " << low;
        last = low;
    }
    EXPECT_GT(last, 1970);
    levels.Restart();
    EXPECT_EQ(levels.Follow(bright, 0, 0).high, 2000);
}

TEST(ToneTable, MapsLevelsToTheEndsOfThePalette) {
    const struct {
        SLevels levels;
        std::vector<std::pair<std::size_t, int>> entries;
    } cases[] = {
        {{100, 355},
         {{0, 0}, {100, 0}, {101, 1}, {227, 127}, {354, 254}, {355, 255}, {65535, 255}}},
        {{100, 100}, {{99, 0}, {100, 255}, {101, 255}}},
        {{0, 65535}, {{0, 0}, {128, 0}, {129, 1}, {65535, 255}}},
    };
    ToneTable table;
    for (const auto& row : cases) {
        FillToneTable(table, row.levels);
        EXPECT_TRUE(std::ranges::is_sorted(table));
        for (const auto& [value, step] : row.entries) EXPECT_EQ(table[value], step) << value;
    }
}

TEST(Region, MeasuresWhatIsWithinThePicture) {
    const SGreyPicture picture{4,
                               3,
                               {10, 20, 30, 40,  //
                                50, 60, 70, 80,  //
                                90, 99, 10, 99}};
    const auto whole = Measure(picture, {0, 0, 99, 99});
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->pixels, 12u);
    EXPECT_TRUE(whole->coldest.x == 0 && whole->coldest.y == 0 && whole->coldest.value == 10);
    EXPECT_TRUE(whole->hottest.x == 1 && whole->hottest.y == 2 && whole->hottest.value == 99);
    const auto part = Measure(picture, {1, 0, 3, 2});  // 20 30 60 70
    ASSERT_TRUE(part);
    EXPECT_EQ(part->mean, 45);
    EXPECT_NEAR(part->deviation, 20.6155281, 1e-6);
    for (const SRegion& nothing : {SRegion{4, 0, 9, 9}, SRegion{2, 1, 2, 2}, SRegion{3, 1, 1, 2}}) {
        EXPECT_FALSE(Measure(picture, nothing));
    }
    EXPECT_EQ(Measure({2, 1, {65535, 65535}}, {0, 0, 2, 1})->deviation, 0);
}

// No value is torn or goes back, and each one is either fetched or counted as replaced.
TEST(Mailbox, HandsOverTheNewestValue) {
    using Value = std::array<unsigned, 64>;
    CMailbox<Value> mailbox;
    constexpr unsigned sent = 100000;
    unsigned replaced = 0;
    std::thread writer([&] {
        for (unsigned number = 1; number <= sent; ++number) {
            mailbox.ForWriting().fill(number);
            if (mailbox.Send()) ++replaced;
        }
    });
    unsigned fetched = 0;
    unsigned last = 0;
    while (last < sent) {
        const Value* const value = mailbox.Fetch();
        if (value == nullptr) continue;
        EXPECT_GT(value->front(), last);
        EXPECT_EQ(std::ranges::count(*value, value->front()), 64);
        last = value->front();
        ++fetched;
    }
    writer.join();
    EXPECT_EQ(fetched + replaced, sent);
    EXPECT_EQ(mailbox.Fetch(), nullptr);
}

}  // namespace
