// The live view in a real window, driven by real keys and a mouse. What it shows is compared with
// the values that it saved, by a program that shares no code with it.
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "NetworkCounters.h"
#include "support/Folder.h"
#include "support/Program.h"
#include "support/Resources.h"

namespace {

using nlohmann::json;
using test::Contains;
using test::CProgram;
using test::CSimulator;
using test::InShell;
using test::RunProgram;
using test::WaitFor;

/// A screen in memory, which the programs of this process use from now on.
class CDisplay {
   public:
    CDisplay()
        // Tests have networks of their own but share the folder of the servers' sockets, so that
        // each needs another number.
        : server({"Xvfb", ":" + std::to_string(100 + ::getpid() % 50000), "-displayfd", "1",
                  "-screen", "0", "1400x1000x24", "-noreset", "-nolisten", "tcp"}) {
        ::setenv("DISPLAY", (":" + server.ReadLine()).c_str(), 1);
        ::setenv("XDG_RUNTIME_DIR", "/tmp", 0);
        ::setenv("LSAN_OPTIONS",
                 "suppressions=" KORU_TEST_DIR "/lsan-suppressions:print_suppressions=0", 1);
    }

   private:
    CProgram server;
};

std::string MissingTools() {
    return test::MissingTool(
        "command -v Xvfb xdotool identify >/dev/null && /usr/bin/python3 -c 'import numpy, Xlib'");
}

/// Returns the differences that tests/check-screenshot finds; empty if there are none.
std::string Differences(const std::string& snapshot, const std::string& window,
                        const std::string& at = "") {
    const auto result = RunProgram(
        InShell(KORU_TEST_DIR "/check-screenshot " + snapshot + " " + window + " " + at));
    if (result.status != 0) return result.errors;
    return std::stoul("0" + result.output) > 100 ? "" : "no picture was compared";
}

/// A running live view. Its snapshots and recordings go to a folder of the test.
class CView : public CProgram {
   public:
    explicit CView(const std::string& arguments, const std::string& at)
        : CProgram(InShell("cd " + at + "; exec qmxview --renderer software " + arguments)),
          folder(at) {
        // Keys go to the window under the pointer, once the window is mapped.
        EXPECT_TRUE(WaitFor([&] {
            const auto under = RunProgram(InShell(
                "window=$(timeout 5 xdotool search --onlyvisible --name qmxview 2>/dev/null) && "
                "xdotool mousemove --window $window 100 100 && "
                "eval $(timeout 5 xdotool getmouselocation --shell) && [ $WINDOW = $window ] && "
                "printf $window"));
            window = under.output;
            return under.status == 0 || !running();
        }));
        EXPECT_TRUE(WaitFor([this] { return Snapshot()["picture"].is_object(); }));
    }
    ~CView() {
        if (!running()) return;
        EXPECT_EQ(Close("xdotool key q"), "");
    }
    void Key(const std::string& name) const { RunProgram({"xdotool", "key", name}); }
    void Mouse(const std::string& what) const { RunProgram(InShell("xdotool " + what)); }
    /// Presses S and returns the description of the first pane.
    json Snapshot() {
        Key("s");
        json description;
        WaitFor([&] {
            file = Newest(".json");
            if (file.empty()) return false;
            std::ifstream stream(file);
            description = json::parse(stream, nullptr, false);
            return !description.is_discarded();
        });
        std::filesystem::rename(file, folder + "/taken");
        return description["panes"][0];
    }
    /// Returns the file of this ending, or an empty text.
    std::string Newest(const std::string& ending) const {
        for (const auto& each : std::filesystem::directory_iterator(folder)) {
            if (each.path().extension() == ending) return each.path().string();
        }
        return {};
    }
    /// Ends the view by a command. Returns what is wrong with its end, and with its counts.
    std::string Close(const std::string& command) {
        RunProgram(InShell(command));
        const std::string printed = ReadAll();
        if (const int status = Wait(); status != 0) return Errors();
        unsigned long shown = 0;
        const int counts =
            std::sscanf(printed.c_str(), "camera %*s %lu frames received, %lu shown, %lu not shown",
                        &received, &shown, &notShown);
        return counts == 3 && shown + notShown == received ? "" : printed;
    }

    const std::string folder;
    std::string window;  ///< its id
    std::string file;    ///< the name of the last description
    unsigned long received = 0;
    unsigned long notShown = 0;
};

TEST(LiveView, ShowsExactlyTheColoursOfTheValues) {
    if (const auto missing = MissingTools(); !missing.empty()) GTEST_SKIP() << missing;
    const CDisplay display;
    const CSimulator cameras({"127.0.0.11,size=160x120,size=98x8,rate=20",
                              "127.0.0.12,streams=mjls+mjpg,size=320x240,rate=10"});
    // The other tests use the software renderer. The driver that SDL chooses here has data races.
    const std::string renderer = test::sanitized ? "--renderer software " : "";
    for (const char* const arguments :
         {"127.0.0.11", "127.0.0.11 --zoom 1 --palette rainbow", "127.0.0.11 --size 98x8 --zoom 9",
          "127.0.0.11 --levels 6500:7001 --ui-scale 2", "127.0.0.12 --type jpeg --zoom 2",
          "127.0.0.11 127.0.0.12 --palette white-hot --percentile 5"}) {
        const test::SFolder folder;
        const std::string file = folder.path + "/a";
        const auto view = RunProgram(InShell("qmxview " + renderer + arguments +
                                             " --after 3 --screenshot " + file + ".png"));
        EXPECT_EQ(view.status, 0) << view.errors;
        EXPECT_EQ(Differences(file + ".json", file + ".png"), "") << arguments;
    }
}

TEST(LiveView, ObeysKeysAndMouse) {
    if (const auto missing = MissingTools(); !missing.empty()) GTEST_SKIP() << missing;
    const CDisplay display;
    CSimulator camera({"127.0.0.11,size=160x120,rate=10"});
    const test::SFolder folder;
    CView view("127.0.0.11", folder.path);
    view.Key("p");
    EXPECT_EQ(view.Snapshot()["palette"], "rainbow");
    view.Key("shift+p");
    EXPECT_EQ(view.Snapshot()["palette"], "iron");
    view.Key("space");
    const json frozen = view.Snapshot();
    EXPECT_TRUE(Contains(frozen["state"], "frozen")) << frozen;
    EXPECT_EQ(view.Snapshot()["frame"], frozen["frame"]);

    // What the X server shows is the same picture.
    const std::string seen = folder.path + "/seen.png";
    RunProgram({"import", "-window", "root", seen});
    const auto place = RunProgram(InShell("eval $(timeout 5 xdotool getwindowgeometry --shell " +
                                          view.window + "); echo $X $Y"));
    EXPECT_EQ(Differences(folder.path + "/taken", seen, place.output), "");

    // A dragged region, against the values that were saved.
    const json shown = frozen["picture"];
    const int left = shown["x"].get<int>() + 30;
    const int top = shown["y"].get<int>() + 40;
    const auto at = [&](int x, int y) {
        return "mousemove --window " + view.window + " " + std::to_string(x) + " " +
               std::to_string(y);
    };
    view.Mouse(at(left, top) + " mousedown 1 " + at(left + 50, top + 60) + " " +
               at(left + 90, top + 120) + " mouseup 1 " + at(left, top));
    json region;
    EXPECT_TRUE(WaitFor([&] { return (region = view.Snapshot())["region"].is_object(); }));
    const auto expected = RunProgram({"/usr/bin/python3", "-c", R"(
import json, subprocess, sys, numpy
pane = json.loads(sys.argv[1]); r = pane['region']; c = pane['cursor']
data = subprocess.check_output(['convert', sys.argv[2] + '/' + pane['values'], '-endian', 'LSB', 'gray:-'])
a = numpy.frombuffer(data, '<u2').reshape(120, 160)
p = a[r['top']:r['bottom'], r['left']:r['right']]
assert p.size > 100 and p.min() == r['minimum'] and p.max() == r['maximum'], (p, r)
assert abs(p.mean() - r['mean']) < 1e-6 and abs(p.std() - r['deviation']) < 1e-6, (p.mean(), r)
assert (c['x'], c['y']) == (r['left'], r['top']) and c['value'] == a[c['y'], c['x']], c)",
                                      region.dump(), folder.path});
    EXPECT_EQ(expected.status, 0) << expected.errors;

    view.Key("r");
    view.Key("space");
    EXPECT_TRUE(WaitFor([&] { return !view.Newest(".tif").empty(); }));
    const unsigned frame = frozen["frame"];
    EXPECT_TRUE(WaitFor([&] { return view.Snapshot()["frame"] > frame + 5; }));
    EXPECT_EQ(view.Close("xdotool key q"), "");
    const auto recording = RunProgram({"tiffinfo", view.Newest(".tif")});
    EXPECT_TRUE(recording.errors.empty() && Contains(recording.output, R"("format":"160x120 raw")"))
        << recording.output;
    camera.Signal(SIGTERM);
    EXPECT_EQ(camera.Wait(), 0);
    EXPECT_TRUE(Contains(camera.Errors(), " 1 goodbyes")) << camera.Errors();
}

// However the view ends, the camera's session ends as well. A slow screen costs no frame.
TEST(LiveView, EndsInOrderAndNeverDelaysTheReceiver) {
    if (const auto missing = MissingTools(); !missing.empty()) GTEST_SKIP() << missing;
    const CDisplay display;
    const std::string close = KORU_TEST_DIR "/press-close ";
    for (const bool byWindowManager : {true, false}) {
        CSimulator camera({"127.0.0.11,size=64x48,rate=50"});
        const test::SFolder folder;
        CView view("127.0.0.11 --slow-screen 80", folder.path);
        EXPECT_TRUE(WaitFor([&] { return view.Snapshot()["frame"] > 50; }));
        EXPECT_EQ(view.Close(byWindowManager ? close + view.window : "xdotool key Escape"), "");
        EXPECT_GT(view.notShown, 10u);
        camera.Signal(SIGTERM);
        EXPECT_EQ(camera.Wait(), 0);
        const std::string report = camera.Errors();
        EXPECT_TRUE(Contains(report, std::to_string(view.received) + " frames") &&
                    Contains(report, " 1 goodbyes"))
            << view.received << "\n"
            << report;
    }
}

TEST(LiveView, ReportsACameraThatIsGoneAndShowsItAgain) {
    if (const auto missing = MissingTools(); !missing.empty()) GTEST_SKIP() << missing;
    const CDisplay display;
    const test::SFolder folder;
    const std::string settings = "127.0.0.11,size=64x48,rate=10";
    auto camera = std::make_unique<CSimulator>(std::vector{settings});
    CView view("127.0.0.11", folder.path);
    camera.reset();
    std::string state;
    EXPECT_TRUE(WaitFor([&] {
        state = view.Snapshot()["state"];
        return state.starts_with("no frames for ");
    })) << state;
    EXPECT_TRUE(WaitFor([&] {
        return Contains(view.Snapshot()["error"], "the camera closed its control connection");
    }));
    camera = std::make_unique<CSimulator>(std::vector{settings});
    const unsigned frame = view.Snapshot()["frame"];
    view.Key("c");
    EXPECT_TRUE(WaitFor([&] { return view.Snapshot()["frame"] > frame + 3; }));
    EXPECT_TRUE(WaitFor([&] { return view.Snapshot()["state"] == ""; }));
    EXPECT_EQ(view.Close("xdotool key q"), "");
}

// Two panes: the frames of one camera are lost on the way, and those of both while the program is
// stopped. A larger buffer would not help.
TEST(LiveView, LinksLevelsAndNamesTheCauseOfMissingFrames) {
    if (const auto missing = MissingTools(); !missing.empty()) GTEST_SKIP() << missing;
    const CDisplay display;
    const CSimulator cameras(
        {"127.0.0.11,size=320x240,rate=20", "127.0.0.12,size=64x48,rate=20,loss=0.03"});
    const test::SFolder folder;
    CView view("127.0.0.11 127.0.0.12", folder.path);
    view.Key("a");
    const json levels = view.Snapshot()["levels"];
    EXPECT_EQ(levels["automatic"], false);
    view.Key("Tab");
    EXPECT_NE(view.Snapshot()["levels"], levels);
    view.Key("Tab");
    view.Key("l");
    EXPECT_EQ(view.Snapshot()["levels"], levels);  // the levels of this pane are those of both
    view.Key("Tab");
    EXPECT_EQ(view.Snapshot()["levels"], levels);

    json pane;
    EXPECT_TRUE(WaitFor([&] {
        pane = view.Snapshot();
        return pane["state"] == "frames lost before this machine";
    })) << pane;
    EXPECT_TRUE(Contains(pane["loss"], "dropped no datagram; their packets were lost, repeated"));
#ifndef KORU_SANITIZED  // they slow the simulator down, so that it leaves out frames by itself
    view.Key("Tab");
    const auto dropped = [] { return *platform::UdpCounters().dropped; };
    const std::uint64_t before = dropped();
    view.Signal(SIGSTOP);
    EXPECT_TRUE(WaitFor([&] { return dropped() > before + 1000; }));
    view.Signal(SIGCONT);
    EXPECT_TRUE(WaitFor([&] {
        pane = view.Snapshot();
        return Contains(pane["loss"], "KiB requested): this program did not run for");
    })) << pane;
#endif
    EXPECT_EQ(view.Close("xdotool key q"), "");
}

// A recording ends with an error, and the view goes on.
TEST(LiveView, GoesOnWhenTheDiskIsFull) {
    if (const auto missing = MissingTools(); !missing.empty()) GTEST_SKIP() << missing;
    const CDisplay display;
    const CSimulator camera({"127.0.0.11,size=320x240,rate=20"});
    const test::SFolder folder;
    ASSERT_EQ(::unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(::mount("none", folder.path.c_str(), "tmpfs", 0, "size=2m"), 0);
    {
        CView view("127.0.0.11", folder.path);
        const auto free = [&] { return std::filesystem::space(folder.path).available; };
        view.Key("r");
        EXPECT_TRUE(WaitFor([&] { return free() < 2 * 320 * 240; }));
        const std::string recording = view.Newest(".tif");
        EXPECT_EQ(RunProgram({"tiffinfo", recording}).errors, "");
        std::filesystem::remove(recording);
        EXPECT_TRUE(WaitFor([&] { return free() > 1'000'000; })) << "the file is still open";
        const json first = view.Snapshot();
        EXPECT_TRUE(Contains(first["error"], "No space left on device")) << first;
        EXPECT_TRUE(WaitFor([&] { return view.Snapshot()["frame"] > first["frame"]; }));
        view.Close("xdotool key q");  // returns the error
        EXPECT_FALSE(view.running());
    }
    EXPECT_EQ(::umount2(folder.path.c_str(), MNT_DETACH), 0);
}

TEST(LiveView, SaysWhatItCannotShow) {
    if (const auto missing = MissingTools(); !missing.empty()) GTEST_SKIP() << missing;
    const CDisplay display;
    const CSimulator camera({"127.0.0.11,name=Roof,size=64x48"});
    const struct {
        const char* command;
        int status;
        const char* says;
    } cases[] = {
        {"DISPLAY= qmxview Roof", 1, "there is no display; use 'qmxhost stream"},
        {"qmxview Cellar", 3, "no camera named 'Cellar'; found: Roof (127.0.0.11)"},
        {"qmxview Roof --format 7", 2, "no such format"},
        {"qmxview Roof 127.0.0.11 --screenshot a.png", 1, "cannot start"},
        {"qmxview 127.0.0.99", 1, "cannot open camera 127.0.0.99"},
        {"qmxview", 2, "CAMERA"},
        {"qmxview Roof --levels 9:3", 2, "neither auto nor LOW:HIGH"},
        {"qmxview Roof --levels 3:9 --percentile 1", 2, "automatic levels only"},
        {"qmxview Roof --format 0 --size 64x48", 2, "--format excludes --size"},
        {"qmxview Roof --screenshot /nowhere/a.png", 1, "cannot write /nowhere/a.png"},
        {"qmxview Roof --palette pink", 2, "--palette"},
        {"qmxview Roof --zoom 65", 2, "'65' is not from 0.125 to 64"},
    };
    for (const auto& row : cases) {
        // OpenGL's software driver has data races of its own, which the thread sanitizer reports.
        const auto outcome = RunProgram(
            InShell("export SDL_RENDER_DRIVER=software SDL_FRAMEBUFFER_ACCELERATION=0; " +
                    std::string(row.command)));
        EXPECT_EQ(outcome.status, row.status) << row.command << outcome.errors;
        EXPECT_TRUE(Contains(outcome.errors, row.says)) << row.command << outcome.errors;
    }
}

}  // namespace
