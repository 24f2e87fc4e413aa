// A pane of the live view without a window: where pixels are on the screen, and how they look.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <numeric>

#include "FrameFeed.h"
#include "HistogramPlot.h"
#include "KeyCommands.h"
#include "Layout.h"
#include "PaneModel.h"
#include "PixelTypeNames.h"
#include "support/Folder.h"

namespace {

using namespace qmxview;
using frames::Argb;

/// A frame of ascending values from 1000 on.
SViewFrame Ramp(std::uint32_t width, std::uint32_t height) {
    SViewFrame frame;
    frame.values = {width, height, std::vector<std::uint16_t>(std::size_t{width} * height)};
    std::iota(frame.values.pixels.begin(), frame.values.pixels.end(), std::uint16_t{1000});
    return frame;
}

// Written down by hand from a picture of 3x2 pixels with the indices 0 1 2 / 3 4 5.
TEST(Viewport, TurnsAndMirrors) {
    const struct {
        unsigned turns;
        bool mirrored;
        std::vector<std::vector<std::size_t>> shown;
    } cases[] = {
        {0, false, {{0, 1, 2}, {3, 4, 5}}},   {0, true, {{2, 1, 0}, {5, 4, 3}}},
        {1, false, {{3, 0}, {4, 1}, {5, 2}}}, {1, true, {{0, 3}, {1, 4}, {2, 5}}},
        {2, false, {{5, 4, 3}, {2, 1, 0}}},   {2, true, {{3, 4, 5}, {0, 1, 2}}},
        {3, false, {{2, 5}, {1, 4}, {0, 3}}}, {3, true, {{5, 2}, {4, 1}, {3, 0}}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(std::to_string(row.turns) + (row.mirrored ? " mirrored" : ""));
        CViewport view;
        view.SetPicture(3, 2);
        view.SetArea({100, 50, 60, 60});
        for (unsigned i = 0; i < row.turns; ++i) view.Rotate();
        if (row.mirrored) view.Mirror();
        const SIndexMap map = view.Map();
        const SRect place = view.Visible();
        ASSERT_EQ(map.columns.size(), static_cast<std::size_t>(place.width));
        const std::size_t side = map.columns.size() / row.shown.front().size();
        for (std::size_t y = 0; y < map.rows.size(); ++y) {
            for (std::size_t x = 0; x < map.columns.size(); ++x) {
                const std::size_t index = map.columns[x] + map.rows[y];
                ASSERT_EQ(index, row.shown[y / side][x / side]) << x << ", " << y;
                const auto pixel =
                    view.PixelAt(place.x + static_cast<int>(x), place.y + static_cast<int>(y));
                ASSERT_TRUE(pixel && pixel->y * 3 + pixel->x == index);
                // The centre of a pixel is shown within the pixel.
                const SPoint centre = view.ToScreen({pixel->x + 0.5, pixel->y + 0.5});
                ASSERT_EQ(view.PixelAt(static_cast<int>(centre.x), static_cast<int>(centre.y)),
                          pixel);
            }
        }
        // One more turn of what is shown turns it clockwise, also if it is mirrored.
        const auto corner = view.PixelAt(place.x, place.y);
        view.Rotate();
        const SRect turned = view.Visible();
        EXPECT_EQ(view.PixelAt(turned.x + turned.width - 1, turned.y), corner);
    }
}

TEST(Viewport, ZoomsAndMovesWithinThePicture) {
    CViewport view;
    view.SetPicture(640, 512);
    view.SetArea({10, 20, 320, 300});
    EXPECT_EQ(view.Visible(), (SRect{10, 42, 320, 256})) << "fits, and is centred";
    const auto held = view.PixelAt(100, 100);
    view.Zoom(3, {100.5, 100.5});  // from 0.5 to 1, 2, 3
    EXPECT_EQ(view.scale(), 3);
    EXPECT_EQ(view.PixelAt(100, 100), held) << "the pixel under the mouse stays there";
    EXPECT_EQ(view.Visible(), (SRect{10, 20, 320, 300}));
    view.Pan(1e6, 1e6);
    EXPECT_EQ(view.PixelAt(10, 20), (SPixel{0, 0}));
    view.Pan(-3, 0);
    EXPECT_EQ(view.PixelAt(10, 20), (SPixel{1, 0})) << "movements beyond the edge do not add up";
    view.Pan(-1e6, -1e6);
    EXPECT_EQ(view.PixelAt(329, 319), (SPixel{639, 511}));
    view.Zoom(-99, {0, 0});
    EXPECT_EQ(view.scale(), 0.125);
    EXPECT_EQ(view.Visible(), (SRect{130, 138, 80, 64}));
    EXPECT_EQ(view.PixelAt(129, 138), std::nullopt);
    view.Fit();
    EXPECT_EQ(view.Visible(), (SRect{10, 42, 320, 256}));
    for (const auto& [width, height] : {std::pair(1, 4000), {4000, 1}, {1, 1}}) {
        view.SetPicture(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height));
        EXPECT_FALSE(view.Visible().empty());
        EXPECT_EQ(view.Map().columns.size(), static_cast<std::size_t>(view.Visible().width));
    }
    view.SetArea({0, 0, 0, 0});
    EXPECT_TRUE(view.Map().columns.empty());
}

TEST(Layout, DividesTheWindowWithoutOverlap) {
    for (const double unit : {1.0, 2.0}) {
        for (const auto& [width, height] :
             {std::pair(1280, 860), {2560, 1720}, {300, 200}, {1, 1}}) {
            for (std::size_t panes = 1; panes <= 7; ++panes) {
                const SLayout layout = DivideWindow(width, height, panes, unit);
                ASSERT_EQ(layout.panes.size(), panes);
                std::vector<SRect> all = {layout.panel};
                for (const SPaneLayout& pane : layout.panes) {
                    all.insert(all.end(), {pane.header, pane.picture, pane.footer});
                }
                for (std::size_t i = 0; i < all.size(); ++i) {
                    const SRect& a = all[i];
                    ASSERT_TRUE(a.x >= 0 && a.y >= 0 && a.width >= 0 && a.height >= 0);
                    ASSERT_TRUE(a.x + a.width <= width && a.y + a.height <= height);
                    for (std::size_t j = 0; j < i; ++j) {
                        const SRect& b = all[j];
                        const bool apart = a.x + a.width <= b.x || b.x + b.width <= a.x ||
                                           a.y + a.height <= b.y || b.y + b.height <= a.y;
                        ASSERT_TRUE(apart || a.empty() || b.empty()) << i << ", " << j;
                    }
                }
            }
        }
    }
}

TEST(Layout, KeepsTwoLabelsApartAndInThePicture) {
    const SRect picture{20, 30, 100, 60};
    for (const int width : {10, 40, 90, 101}) {
        for (int i = 0; i < 100 * 60 * 100 * 60; i += 4999) {  // a prime: all kinds of pairs
            const SLabel hot{{20.5 + i % 100, 30.5 + i / 100 % 60}, width, 14};
            const SLabel cold{{20.5 + i / 6000 % 100, 30.5 + i / 600000}, width, 14};
            const auto places = PlaceLabels({hot, cold}, 9, picture);
            for (const SRect& each : places) {
                ASSERT_EQ(each.empty(), width > 100) << i;
                ASSERT_TRUE(each.empty() || (each.x >= 20 && each.x + each.width <= 120));
                ASSERT_TRUE(each.empty() || (each.y >= 30 && each.y + each.height <= 90));
            }
            ASSERT_TRUE(places[0].empty() || places[0].x + width <= places[1].x ||
                        places[1].x + width <= places[0].x || places[0].y + 14 <= places[1].y ||
                        places[1].y + 14 <= places[0].y)
                << i;
        }
    }
    const auto beside = PlaceLabels({SLabel{{60.5, 60}, 20, 14}, {{61.5, 60}, 20, 14}}, 9, picture);
    EXPECT_EQ(beside[0], (SRect{69, 53, 20, 14}));
    EXPECT_EQ(beside[1], (SRect{32, 53, 20, 14}));
    const auto turned = PlaceLabels({SLabel{{110, 60}, 20, 14}, {{500, 60}, 20, 14}}, 9, picture);
    EXPECT_EQ(turned[0], (SRect{81, 53, 20, 14})) << "to the left, as there is no room";
    EXPECT_TRUE(turned[1].empty()) << "its point is not visible";
}

TEST(Pane, PaintsValuesInTheColoursOfTheirLevels) {
    CPaneModel model({.palette = "white-hot", .percentile = 0}, {});
    SViewFrame frame = Ramp(16, 16);  // 1000 to 1255: 256 values for 256 colours
    model.Show(frame, 0);
    model.viewport.SetArea({0, 0, 16, 16});
    std::vector<Argb> painted(16 * 16);
    const auto at = [&](std::size_t index, bool greyed = false) {
        model.Paint(painted.data(), 16, greyed);
        return painted[index];
    };
    EXPECT_EQ(at(0), 0xFF000000U);
    EXPECT_EQ(at(100), 0xFF646464U);
    EXPECT_EQ(at(255), 0xFFFFFFFFU);
    EXPECT_EQ(at(255, true), 0xFF9F9F9FU);
    model.settings.markIsotherm = true;
    model.settings.isotherm = {1010, 1020};
    model.settings.markSaturation = true;
    model.settings.saturation = 1020;
    EXPECT_EQ(at(9), 0xFF090909U);
    EXPECT_EQ(at(10), frames::isothermColour);
    EXPECT_EQ(at(19), frames::isothermColour);
    EXPECT_EQ(at(20), frames::saturationColour);
    EXPECT_EQ(at(255), frames::saturationColour);
    model.settings.markIsotherm = model.settings.markSaturation = false;
    model.LockLevels({1100, 1100});
    EXPECT_EQ(at(99), 0xFF000000U);
    EXPECT_EQ(at(100), 0xFFFFFFFFU);
    const frames::SLevels two[] = {{5, 9}, {1, 7}};
    model.LinkLevels(CommonLevels(two));
    EXPECT_TRUE(model.levels().low == 1 && model.levels().high == 9);
    model.LinkLevels({});

    frame.colours.assign(3 * 256, 7);
    frame.colours[3 * 17 + 1] = 200;
    model.Show(frame, 0);
    EXPECT_EQ(at(17), 0xFF07C807U) << "a JPEG frame has its own colours";
}

TEST(Pane, MeasuresWhatItShows) {
    CPaneModel model({.markSpots = true}, SValueScale{0.5, -100, "°C"});
    SViewFrame frame = Ramp(10, 10);
    frame.values.pixels[0] = 0x4F4B;  // the simulator's magic number, and the rest of its stamp
    frame.values.pixels[1] = 0x5552;
    frame.values.pixels[2] = 9;
    model.Show(frame, 0);
    ASSERT_TRUE(model.spots());
    EXPECT_EQ(model.spots()->coldest.value, 1006) << "the stamp does not count";
    EXPECT_EQ(model.spots()->hottest.value, 1099);
    model.SetRegion(frames::SRegion{2, 1, 4, 2});
    EXPECT_EQ(model.regionStatistics()->mean, 1012.5);
    EXPECT_EQ(model.series().all().size(), 0u);
    model.Show(frame, 0.1);
    EXPECT_EQ(model.series().all(), std::vector<float>{1012.5F});
    model.SetCursor(SPixel{9, 9});
    EXPECT_EQ(model.CursorText(), "(9, 9)  1099 = 449.50 °C");

    model.SetReference();
    EXPECT_EQ(model.levels().low, differenceZero) << "also while no frame comes";
    SViewFrame later = Ramp(10, 10);
    later.values.pixels[99] += 50;
    later.values.pixels[12] -= 4;
    model.Show(later, 0.1);
    EXPECT_EQ(model.CursorText(), "(9, 9)  +50 = +25.00 °C") << "the offset cancels out";
    EXPECT_EQ(model.regionStatistics()->mean, differenceZero - 2);
    SViewFrame other = Ramp(5, 10);
    model.Show(other, 0.1);
    EXPECT_FALSE(model.hasReference()) << "it is of another size";
    EXPECT_EQ(model.CursorText(), "") << "the pixel does not exist any more";
}

TEST(Pane, SaysWhyAPictureLooksUniform) {
    CPaneModel model({}, {});
    SViewFrame frame = Ramp(10, 10);
    model.Show(frame, 0);
    EXPECT_EQ(model.UniformText(), "");
    model.LockLevels({2000, 3000});
    EXPECT_EQ(model.UniformText(),
              "values 1000..1099 are all below the levels; A sets them automatically");
    model.LockLevels({10, 1000});
    EXPECT_EQ(model.UniformText(),
              "values 1000..1099 are all above the levels; A sets them automatically");
    for (std::size_t i = 0; i < 100; ++i) frame.values.pixels[i] = i % 2 == 0 ? 7188 : 7190;
    frame.values.pixels[0] = 7190;
    frame.values.pixels[4] = 7188;
    model.Show(frame, 0.1);
    EXPECT_EQ(model.UniformText().substr(0, 10), "all values");
}

TEST(Keys, SelectCommands) {
    const struct {
        const char* name;
        const char* position;
        bool shift;
        std::optional<ECommand> command;
    } cases[] = {
        {"Space", "Space", false, ECommand::Freeze},
        {"P", "P", false, ECommand::NextPalette},
        {"P", "P", true, ECommand::PreviousPalette},
        {"=", "=", true, ECommand::ZoomIn},
        {"Keypad -", "Keypad -", false, ECommand::ZoomOut},
        {"Escape", "Escape", false, ECommand::Quit},
        {"S", "S", true, ECommand::Snapshot},
        {"A", "Q", false, ECommand::AutomaticLevels},  // a French keyboard
        {",", "M", false, std::nullopt},               // likewise
        {"Ы", "S", true, ECommand::Snapshot},          // a Russian one
        {"Z", "Z", false, std::nullopt},
        {"", "", false, std::nullopt},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(CommandOfKey(row.name, row.position, row.shift), row.command) << row.name;
    }
}

TEST(Scale, IsParsedAndApplied) {
    for (const char* const wrong : {"", "1", "1,2", "0,1,x", "a,1,x", "1,,x", "nan,1,x"}) {
        EXPECT_FALSE(ParseScale(wrong)) << wrong;
    }
    CValueTexts texts(ParseScale("-0.04,10,K"));
    EXPECT_EQ(texts.Value(100), "100 = 6.00 K");
    EXPECT_EQ(texts.Value(100.126), "100.13 = 5.99 K");
    EXPECT_EQ(texts.Distance(50), "50 = 2.00 K");
    texts.SetDifference(true);
    EXPECT_EQ(texts.Value(-100), "-100 = +4.00 K");
    EXPECT_EQ(CValueTexts(ParseScale("1,0,")).Value(5), "5 = 5.00");
}

TEST(Recorder, SaysWhyItCannotWriteAndGoesOn) {
    for (const char* const file : {"/", "/nowhere/a.tif", "/dev/full"}) {
        CRecorder recorder(file, {"127.0.0.1", 4, 1, frames::rawType});
        const std::vector<std::uint8_t> frame(8);
        recorder.Push(frame, {});
        recorder.Finish();
        SRecorderState state;
        while (!(state = recorder.State()).finished) std::this_thread::yield();
        EXPECT_NE(state.error.find(file), std::string::npos) << state.error;
        EXPECT_EQ(state.recorded, 0u);
        EXPECT_TRUE(std::filesystem::exists(file) == (std::string(file) != "/nowhere/a.tif"));
    }
}

// A recording contains frames of one format.
TEST(Recorder, EndsWithItsFormat) {
    const test::SFolder folder;
    CSignal signal;
    CFrameFeed feed(signal);
    CRecorder recorder(folder.path + "/a.tif", {"127.0.0.1", 4, 1, frames::rawType});
    const std::vector<std::uint8_t> bytes(8);
    const auto send = [&] { CFrameFeed::OnFrame(&feed, bytes.data(), 8); };
    feed.Begin({4, 1, frames::rawType});
    feed.RecordTo(&recorder);
    send();
    feed.Begin({4, 1, frames::rawType});  // the stream has restarted
    send();
    EXPECT_TRUE(feed.Records());
    feed.Begin({2, 2, frames::rawType});
    send();
    EXPECT_FALSE(feed.Records());
    recorder.Finish();
    while (!recorder.State().finished) std::this_thread::yield();
    EXPECT_EQ(recorder.State().recorded, 2u);
}

TEST(HistogramPlot, KeepsItsRangeAndMovesTheCloserLevel) {
    frames::CHistogram histogram;
    histogram.Count(std::vector<std::uint16_t>{1000, 1100, 1100}, 1);
    const frames::SLevels range = PlotRange(histogram, {1000, 1100}, {});
    EXPECT_TRUE(range.low == 975 && range.high == 1125);
    EXPECT_EQ(PlotRange(histogram, {1010, 1100}, range).low, 975);
    EXPECT_LT(PlotRange(histogram, {900, 1100}, range).low, 900);
    const std::vector<float> columns = PlotColumns(histogram, {1000, 1100}, 101);
    EXPECT_EQ(columns[100], 1);
    EXPECT_NEAR(columns[0], std::log(2) / std::log(3), 1e-6);
    EXPECT_EQ(std::accumulate(columns.begin() + 1, columns.end(), 0.0F), 1);
    int held = 0;
    frames::SLevels levels = DragLevel({1000, 1100}, 1049, held);
    EXPECT_EQ(levels.low, 1049);
    levels = DragLevel(levels, 1200, held);
    EXPECT_EQ(levels.low, 1100) << "the same level goes on to the other one, and not beyond";
}

// Neither the callback nor the screen waits, no frame is torn, and each one is counted once.
TEST(Feed, ShowsTheNewestFrameAndCountsTheRest) {
    CSignal signal;
    CFrameFeed feed(signal);
    feed.Begin({32, 4, frames::rawType});
    constexpr std::uint64_t sent = 20000;
    std::thread camera([&] {
        std::vector<std::uint16_t> pixels(128);
        for (std::uint64_t i = 1; i <= sent; ++i) {
            pixels.assign(128, static_cast<std::uint16_t>(i));
            CFrameFeed::OnFrame(&feed, reinterpret_cast<const std::uint8_t*>(pixels.data()),
                                i % 100 == 0 ? 0 : 256);
        }
    });
    std::uint64_t last = 0;
    while (feed.Counts().received.frames < sent || last == 0) {
        signal.Wait(std::chrono::milliseconds(1));
        const SViewFrame* const frame = feed.Fetch();
        if (frame == nullptr) continue;
        EXPECT_GT(frame->arrival.number, last);
        last = frame->arrival.number;
        EXPECT_EQ(frame->values.pixels,
                  std::vector<std::uint16_t>(128, static_cast<std::uint16_t>(last)));
    }
    camera.join();
    feed.End();
    feed.Drain();
    const SFeedCounts counts = feed.Counts();
    EXPECT_EQ(counts.undecodable, sent / 100);
    EXPECT_EQ(counts.shown + counts.notShown, sent);
}

}  // namespace
