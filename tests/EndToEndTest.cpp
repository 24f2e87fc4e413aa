// The whole system as a user meets it: the small host loads the plug-in and reaches simulated
// cameras by real multicast DNS, node tree, RTSP and RTP.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "Socket.h"
#include "support/Program.h"
#include "support/Shell.h"

namespace {

using nlohmann::json;
using test::Contains;
using test::CProgram;
using test::CShell;
using test::CSimulator;
using test::InShell;
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
    for (int search = 0; search < 50 && found.size() < names.size(); ++search) {
        const json answer = shell("enumerate");
        for (const json& device : answer["devices"]) found.insert(device["Name"]);
    }
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

// Stopped by a signal, or with a result that nobody can read: either way the camera is let go.
TEST(EndToEnd, EveryEndOfAStreamIsInOrder) {
    CSimulator camera({"127.0.0.11,size=64x48"});
    for (const int signal : {SIGINT, SIGHUP, SIGTERM}) {
        // The last host has outlived its terminal on purpose.
        CProgram host(InShell(std::string(signal == SIGTERM ? "trap '' HUP; " : "") +
                              "exec qmxhost stream 127.0.0.11 --json"));
        EXPECT_FALSE(host.ReadLine().empty());  // it streams
        if (signal == SIGTERM) host.Signal(SIGHUP);
        EXPECT_TRUE(signal != SIGTERM || Contains(host.ReadLine(), "status"));
        host.Signal(signal);
        EXPECT_EQ(host.Wait(), 0) << signal << host.Errors();
    }
    const auto expectFailure = [](const std::string& command, const std::string& output) {
        const SOutcome outcome =
            RunProgram(InShell("{ " + command + "; echo status $? >&2; } " + output));
        SCOPED_TRACE(command + output + ": " + outcome.errors);
        EXPECT_TRUE(Contains(outcome.errors, "status 1"));
        EXPECT_TRUE(Contains(outcome.errors, "can't write"));
    };
    expectFailure("qmxhost stream 127.0.0.11 --json", "| head -1");
    for (const char* const output : {">/dev/full", ">&-"}) {
        for (const std::string words :
             {"list", "formats 127.0.0.11", "get 127.0.0.11", "set 127.0.0.11 FrameRate=30",
              "--help", "stream 127.0.0.11 --count 3", "stream 127.0.0.11 --count 3 --json",
              "stream 127.0.0.11 --count 3 --save -"}) {
            expectFailure("qmxhost " + words, output);
        }
        expectFailure("echo state | qmxhost shell", output);
        expectFailure("korusim 127.0.0.12", output);
        expectFailure("korusim --help", output);
    }
    camera.Signal(SIGTERM);
    EXPECT_EQ(camera.Wait(), 0);
    const std::string summary = camera.Errors();
    int goodbyes = -1;
    for (std::size_t at = 0; at != std::string::npos; ++goodbyes)
        at = summary.find("1 goodb", ++at);
    EXPECT_EQ(goodbyes, 10);
}

// What cannot run says why in one line; it neither ends by a signal nor calls the network empty.
TEST(EndToEnd, NamesTheResourceThatIsShort) {
    const auto expectLine = [](const std::string& limit, const std::string& program,
                               const char* says) {
        const SOutcome outcome =
            RunProgram(InShell("echo enumerate | { ulimit " + limit + "; exec " + program + "; }"));
        SCOPED_TRACE(program + limit + ": " + outcome.errors);
        const bool shell = program.ends_with("shell");  // it answers, and says so of the browse
        EXPECT_EQ(outcome.status, shell ? 0 : 1);
        EXPECT_EQ(outcome.output.empty(), !shell);
        EXPECT_TRUE(Contains(outcome.errors, says));
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
    };
    for (int number = test::sanitized ? 6 : 5; number <= 14; ++number) {
        for (const char* const program : {"korusim 127.0.0.12", "qmxhost list", "qmxhost shell"}) {
            if (number > 8 && *program == 'q') continue;  // enough for a search
            expectLine("-n " + std::to_string(number), program, "too few file descriptors");
        }
    }
    std::string fifty = "korusim";
    for (int i = 1; i <= 50; ++i) fifty += " 127.0.1." + std::to_string(i);
    if (!test::sanitized) expectLine("-v 300000", fifty, "can't start its thread");
}

TEST(EndToEnd, ReportsACameraThatGoesAway) {
    CSimulator first({"127.0.0.11,size=64x48", "127.0.0.12,size=64x48"});
    CShell shell;
    EXPECT_TRUE(shell.Stream());
    CProgram host({"qmxhost", "stream", "127.0.0.12", "--json"});
    EXPECT_FALSE(host.ReadLine().empty());
    first.Signal(SIGKILL);
    first.Wait();
    EXPECT_EQ(host.Wait(), 4);
    EXPECT_TRUE(Contains(host.Errors(), "127.0.0.12 has closed its control connection"));
    EXPECT_FALSE(Contains(host.Errors(), "firewall")) << host.Errors();
    std::string last;
    for (std::string line; !(line = host.ReadLine()).empty();) last = line;
    EXPECT_LT(json::parse(last)["seconds"], 10);  // it takes as long for mere silence
    // The camera has forgotten the session, the device object has not.
    const CSimulator second({"127.0.0.11,size=64x48"});
    EXPECT_TRUE(shell.Ok("close") && shell.Ok("open 127.0.0.11 3") && !shell.Ok("start"));
    EXPECT_TRUE(shell.Ok("new") && shell.Stream() && shell.Ok("stop"));
}

// More of them than a camera has room for, against one who streams and one who comes.
TEST(EndToEnd, IdleConnectionsKeepNobodyOut) {
    const CSimulator camera({"127.0.0.11,size=64x48"});
    CShell shell;
    EXPECT_TRUE(shell.Stream() && shell.Ok("get FrameRate"));
    std::vector<platform::CSocket> idle;
    const std::string options = "OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n";
    for (int i = 0; i < 80; ++i) {
        const bool rtsp = i < 40;  // these are younger than the session, and have said something
        const auto handle = idle.emplace_back(platform::OpenTcpSocket()).handle();
        ASSERT_TRUE(platform::ConnectSocket(
            handle,
            platform::MakeSocketAddress(*platform::ParseIpv4("127.0.0.11"), rtsp ? 554 : 4554)));
        char answer = 0;
        EXPECT_TRUE(!rtsp || (platform::Send(handle, options.data(), options.size()) > 0 &&
                              platform::Receive(handle, &answer, 1) == 1));
    }
    EXPECT_EQ(RunProgram({"qmxhost", "formats", "127.0.0.11"}).status, 0);
    EXPECT_TRUE(shell.Ok("clear") && shell.Ok("wait 9 20000"));
    EXPECT_TRUE(shell.Ok("get FrameRate") && shell.Ok("set Paused true"));
    EXPECT_EQ(shell("get Paused")["value"], true);  // the camera has answered
}

}  // namespace
