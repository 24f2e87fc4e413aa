// The whole system as a user meets it: the small host loads the plug-in and reaches simulated
// cameras by real multicast DNS, node tree, RTSP and RTP.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "support/Program.h"
#include "support/Resources.h"
#include "support/Shell.h"

namespace {

using nlohmann::json;
using test::CProgram;
using test::CShell;
using test::CSimulator;
using test::RunProgram;
using test::SOutcome;

std::set<std::string> Lines(const std::string& text) {
    std::set<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.insert(line);
    return lines;
}

const char* const probeOf = "KORURTSP::FindCaptureDevices(";

TEST(EndToEnd, FindsTheCamerasThatCanStream) {
    const CSimulator cameras({"127.0.0.11,name=Roof", "127.0.0.12,name=Gäste Hof,streams=mjls+mjpg",
                              "127.0.0.13,name=Old,tree=no-switch", "127.0.0.14,tree=gcam",
                              "127.0.0.15,tree=no-rtp", "127.0.0.16,tree=switched-off",
                              "127.0.0.17,tree=off"});
    const SOutcome list = RunProgram({"qmxhost", "list", "--json", "--verbose"});
    EXPECT_EQ(list.status, 0);
    EXPECT_NE(list.output.find("127.0.0.11"), std::string::npos);
    EXPECT_NE(list.output.find("Gäste Hof"), std::string::npos);
    EXPECT_NE(list.output.find("127.0.0.13"), std::string::npos);
    for (const char* dropped : {"127.0.0.14", "127.0.0.15", "127.0.0.16", "127.0.0.17"}) {
        EXPECT_EQ(list.output.find(dropped), std::string::npos) << dropped;
    }
    const std::set<std::string> log = Lines(list.errors);
    EXPECT_TRUE(log.contains("KORU RTSP Plugin loaded"));
    const auto expectLine = [&](const std::string& line) {
        EXPECT_TRUE(log.contains(line)) << line << "\nin\n" << list.errors;
    };
    for (int last = 11; last <= 17; ++last) {
        expectLine(std::string(probeOf) + "): Found device 127.0.0." + std::to_string(last) + ".");
    }
    const std::string probe = probeOf + std::string("127.0.0.");
    expectLine(probe + "14): .gcam tree found, skipping.");
    expectLine(probe + "15): .rtp tree not found, skipping.");
    expectLine(probe + "16): rtsp streaming not enabled, skipping.");
    expectLine(probe + "17): Failed to connect.");
    const auto details = std::count_if(log.begin(), log.end(), [](const std::string& line) {
        return line.find("): hwtype: ") != std::string::npos;
    });
    EXPECT_EQ(details, 6);  // dropped cameras tell theirs too

    // By name: the browse runs again, without details.
    CShell shell;
    EXPECT_TRUE(shell.Ok("open - 3 Gäste Hof"));
    EXPECT_EQ(shell("formats")["formats"].size(), 2u);
    EXPECT_TRUE(shell("state")["connected"] == true);
    shell.Wait();
    EXPECT_EQ(shell.Errors().find("hwtype"), std::string::npos);
}

// More than one answer packet holds, and names as long as they may be.
TEST(EndToEnd, FindsTwoHundredCameras) {
    std::vector<std::string> cameras;
    std::set<std::string> names;
    for (int i = 1; i <= 200; ++i) {
        std::string name = std::to_string(i) + " Wärmebild 熱画像 🔥.\\\"";
        while (i % 10 == 0 && name.size() < 63) name += '=';
        cameras.push_back("127.0.2." + std::to_string(i) + ",size=16x16,name=" + name);
        names.insert(name);
    }
    const CSimulator simulator(cameras);
    CShell shell;
    std::set<std::string> found;
    // A busy machine may not get through them all within the second that a browse takes.
    EXPECT_TRUE(test::WaitFor([&] {
        const json answer = shell("enumerate");
        for (const json& device : answer["devices"]) found.insert(device["Name"]);
        return found.size() >= names.size();
    }));
    EXPECT_EQ(found, names);
}

TEST(EndToEnd, StreamsEveryFrameExactly) {
    const CSimulator camera({"127.0.0.11,name=Roof,size=640x512,size=320x240,rate=30"});
    const SOutcome stream =
        RunProgram({"qmxhost", "stream", "Roof", "--count", "60", "--check", "--json"});
    EXPECT_EQ(stream.status, 0) << stream.errors;
    const std::set<std::string> lines = Lines(stream.output);
    ASSERT_FALSE(lines.empty());

    CShell shell;
    EXPECT_TRUE(shell.Ok("open 127.0.0.11 3"));
    EXPECT_TRUE(shell.Ok("setformat 320 240 raw"));
    EXPECT_TRUE(shell.Ok("start"));
    EXPECT_FALSE(shell.Ok("start"));
    EXPECT_TRUE(shell.Ok("wait 5 20000"));
    EXPECT_TRUE(shell.Ok("setformat 640 512 raw"));  // a restart under way
    EXPECT_TRUE(shell.Ok("clear"));
    EXPECT_TRUE(shell.Ok("wait 5 20000"));
    EXPECT_EQ(shell("frames")["frames"].back()["length"], 640 * 512 * 2);
    EXPECT_TRUE(shell.Ok("suspend"));
    EXPECT_TRUE(shell.Ok("resume"));
    EXPECT_TRUE(shell.Ok("clear"));
    EXPECT_TRUE(shell.Ok("wait 5 20000"));
    EXPECT_TRUE(shell.Ok("stop"));
    EXPECT_EQ(shell.Wait(), 0);
}

struct SQuirkCase {
    const char* quirk;
    bool opens;
    bool starts;
    bool stops;
    const char* log;  // the one line that a failure writes
    double seconds;   // the least that the failing step takes
};

// For each way of a camera to misbehave: what the device answers, what it logs, how long it takes.
TEST(EndToEnd, SurvivesOddCameras) {
    const std::string start = "CKORURTSPDevice::StartContinuous: ";
    const char* const noServer =
        "CKORURTSPDevice::Open: Failed to connect to RTSP server on 127.0.0.11.";
    const SQuirkCase cases[] = {
        {"silent", false, false, false, noServer, 4.9},
        {"late-answers", false, false, false, noServer, 4.9},
        {"lower-case-headers", false, false, false, noServer, 0},
        {"split-body", false, false, false,
         "CKORURTSPDevice::Open: Failed to get RTSP/SDP formats.", 0},
        {"no-server-port", true, false, false,
         "CKORURTSPDevice::StartContinuous: RTSP session setup failed.", 0},
        {"refuse-play", true, false, false,
         "CKORURTSPDevice::StartContinuous: Failed to play RTSP session.", 0},
        {"session-timeout-in-play", true, false, false,
         "CKORURTSPDevice::StartContinuous: Failed to play RTSP session.", 0},
        {"refuse-pause", true, true, true, "", 0},
        {"refuse-teardown", true, true, true, "", 0},
    };
    for (const SQuirkCase& row : cases) {
        SCOPED_TRACE(row.quirk);
        const CSimulator cameras({std::string("127.0.0.11,quirk=") + row.quirk});
        CShell shell;
        json answer = shell("open 127.0.0.11 3");
        EXPECT_EQ(answer["ok"] == true, row.opens);
        if (row.opens) {
            shell("setformat 640 512 raw");
            answer = shell("start");
            EXPECT_EQ(answer["ok"] == true, row.starts);
        }
        EXPECT_GE(answer["ms"].get<double>(), row.seconds * 1000);
        if (row.starts) {
            EXPECT_TRUE(shell.Ok("wait 2 20000"));
            EXPECT_EQ(shell.Ok("stop"), row.stops);
            EXPECT_TRUE(shell("state")["streaming"] == false);
        }
        EXPECT_TRUE(shell.Ok("close"));
        EXPECT_EQ(shell.Wait(), 0);
        std::set<std::string> log = Lines(shell.Errors());
        log.erase("KORU RTSP Plugin loaded");
        EXPECT_EQ(log, *row.log == '\0' ? std::set<std::string>{} : std::set<std::string>{row.log});
    }
}

TEST(EndToEnd, TellsAUserWhatWentWrong) {
    const CSimulator camera({"127.0.0.11,name=Roof,tree=off"});
    struct {
        std::vector<std::string> arguments;
        int status;
        const char* says;
    } const cases[] = {
        {{"list", "--plugin", "/nowhere/x.so"}, 1, "/nowhere/x.so"},
        {{"formats", "Nobody"}, 3, "Nobody"},
        {{"formats", "127.0.0.99"}, 1, "127.0.0.99"},
        {{"stream", "127.0.0.11"}, 1, "127.0.0.11"},
        {{"stream", "127.0.0.11", "--no-tree", "--format", "9"}, 2, "no such format"},
        {{"stream"}, 2, "CAMERA"},
        {{"frobnicate"}, 2, "frobnicate"},
    };
    for (const auto& row : cases) {
        std::vector<std::string> words = {"qmxhost"};
        words.insert(words.end(), row.arguments.begin(), row.arguments.end());
        const SOutcome outcome = RunProgram(words);
        SCOPED_TRACE(row.arguments.back() + ": " + outcome.errors);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_NE(outcome.errors.find(row.says), std::string::npos);
        EXPECT_EQ(outcome.output, "");
    }
}

TEST(EndToEnd, CtrlCEndsAStreamInOrder) {
    CSimulator camera({"127.0.0.11,size=64x48"});
    CProgram host({"qmxhost", "stream", "127.0.0.11", "--json"});
    EXPECT_FALSE(host.ReadLine().empty());  // it streams
    host.Signal(SIGINT);
    EXPECT_EQ(host.Wait(), 0) << host.Errors();
    camera.Signal(SIGTERM);
    EXPECT_EQ(camera.Wait(), 0);
    EXPECT_NE(camera.Errors().find("1 goodbyes"), std::string::npos) << camera.Errors();
}

}  // namespace
