// The whole system: the small host loads the plug-in and reaches simulated cameras by multicast
// DNS, node tree, RTSP and RTP.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

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

TEST(EndToEnd, FindsTheCamerasThatCanStream) {
    const CSimulator cameras({"127.0.0.11,name=Roof", "127.0.0.12,name=Gäste Hof,streams=mjls+mjpg",
                              "127.0.0.13,name=Old,tree=no-switch", "127.0.0.14,tree=gcam",
                              "127.0.0.15,tree=no-rtp", "127.0.0.16,tree=switched-off",
                              "127.0.0.17,tree=off"});
    const SOutcome list = RunProgram({"qmxhost", "list", "--json"});
    EXPECT_EQ(list.status, 0) << list.errors;
    EXPECT_EQ(json::parse(list.output)["cameras"],
              (json{{{"address", "127.0.0.11"}, {"name", "Roof"}},
                    {{"address", "127.0.0.12"}, {"name", "Gäste Hof"}},
                    {{"address", "127.0.0.13"}, {"name", "Old"}}}));

    // By name: the browse runs again.
    CShell shell;
    EXPECT_TRUE(shell.Ok("open - 3 Gäste Hof"));
    EXPECT_EQ(shell("formats")["formats"].size(), 2u);
    EXPECT_TRUE(shell("state")["connected"] == true);
}

// More cameras than fit into one response packet, and names of the greatest length.
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
    // On a busy machine one browse of a second may not find all of them.
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
    ASSERT_EQ(json::parse(stream.output.substr(stream.output.rfind("{\"kind")))["check"]["good"],
              60);
}

// Which operations succeed with a camera for each faulty behaviour of the simulator.
TEST(EndToEnd, SurvivesOddCameras) {
    const std::pair<const char*, const char*> cases[] = {
        {"silent", "close"},
        {"late-answers", "close"},
        {"lower-case-headers", "close"},
        {"split-body", "close"},
        {"no-server-port", "open close"},
        {"refuse-play", "open close"},
        {"session-timeout-in-play", "open close"},
        {"refuse-pause", "open start wait stop close"},
        {"refuse-teardown", "open start wait stop close"},
    };
    for (const auto& [quirk, expected] : cases) {
        const CSimulator camera({std::string("127.0.0.11,size=64x48,quirk=") + quirk});
        CShell shell;
        std::string done;
        for (const char* const step : {"open 127.0.0.11 3", "setformat 64 48 raw", "start",
                                       "wait 2 20000", "stop", "close"}) {
            const std::string name = std::string(step).substr(0, std::string(step).find(' '));
            if (name == "wait" && !done.ends_with("start")) continue;  // no frame will come
            if (shell.Ok(step) && name != "setformat") done += (done.empty() ? "" : " ") + name;
        }
        EXPECT_EQ(done, expected) << quirk;
        EXPECT_EQ(shell.Wait(), 0);
    }
}

TEST(EndToEnd, ReportsWhatWentWrong) {
    const CSimulator camera({"127.0.0.11,name=Roof,tree=off"});
    struct {
        std::vector<std::string> arguments;
        int status;
        const char* says;
    } const cases[] = {
        {{"list", "--plugin", "/nowhere/x.so"}, 1, "/nowhere/x.so"},
        {{"formats", "Nobody"}, 3, "Nobody"},
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

// Whether a signal ends the stream or its output fails, the session on the camera is ended.
TEST(EndToEnd, EveryEndOfAStreamReleasesTheCamera) {
    CSimulator camera({"127.0.0.11,size=64x48"});
    for (const int signal : {SIGINT, SIGHUP, SIGTERM}) {
        // The last host ignores hang-ups, as with nohup.
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
        EXPECT_TRUE(Contains(outcome.errors, "cannot write"));
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

// A program that lacks a resource reports it in one line. It neither crashes nor claims that there
// are no cameras.
TEST(EndToEnd, NamesTheResourceThatIsShort) {
    const auto expectLine = [](const std::string& limit, const std::string& program,
                               const char* says) {
        const SOutcome outcome =
            RunProgram(InShell("echo enumerate | { ulimit " + limit + "; exec " + program + "; }"));
        SCOPED_TRACE(program + limit + ": " + outcome.errors);
        const bool shell =
            program.ends_with("shell");  // it runs, and the browse reports the failure
        EXPECT_EQ(outcome.status, shell ? 0 : 1);
        EXPECT_EQ(outcome.output.empty(), !shell);
        EXPECT_TRUE(Contains(outcome.errors, says));
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
    };
    for (int number = test::sanitized ? 6 : 5; number <= 14; ++number) {
        for (const char* const program : {"korusim 127.0.0.12", "qmxhost list", "qmxhost shell"}) {
            if (number > 8 && *program == 'q') continue;  // sufficient for a search
            expectLine("-n " + std::to_string(number), program, "too few file descriptors");
        }
    }
    std::string fifty = "korusim";
    for (int i = 1; i <= 50; ++i) fifty += " 127.0.1." + std::to_string(i);
    if (!test::sanitized) expectLine("-v 300000", fifty, "cannot start its thread");
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
    EXPECT_LT(json::parse(last)["seconds"], 10);  // without the closed connection it takes 10 s
    // The restarted camera does not know the session that the device object still has.
    const CSimulator second({"127.0.0.11,size=64x48"});
    EXPECT_TRUE(shell.Ok("close") && shell.Ok("open 127.0.0.11 3") && !shell.Ok("start"));
    EXPECT_TRUE(shell.Ok("new") && shell.Stream() && shell.Ok("stop"));
}

// More idle connections than a camera accepts, one client that streams and a new one.
TEST(EndToEnd, IdleConnectionsDoNotBlockClients) {
    const CSimulator camera({"127.0.0.11,size=64x48"});
    CShell shell;
    EXPECT_TRUE(shell.Stream() && shell.Ok("get FrameRate"));
    std::vector<platform::CSocket> idle;
    const std::string options = "OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n";
    for (int i = 0; i < 80; ++i) {
        const bool rtsp = i < 40;  // these are newer than the session and have sent a request
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
    EXPECT_EQ(shell("get Paused")["value"], true);  // the camera has responded
}

}  // namespace
