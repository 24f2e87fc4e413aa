// Frame rate, pause and reception reports, from the small host's shell to the simulated camera. The
// rates of a test differ so much that a slow machine does not matter.
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/Program.h"
#include "support/Resources.h"
#include "support/Shell.h"

namespace {

using nlohmann::json;
using test::Contains;
using test::CShell;
using test::CSimulator;
using test::RunProgram;
using test::SOutcome;
using test::WaitFor;

/// Returns the summary of the simulator. It must not report invalid RTCP.
std::string End(CSimulator& camera) {
    camera.Signal(SIGTERM);
    EXPECT_EQ(camera.Wait(), 0);
    const std::string summary = camera.Errors();
    EXPECT_EQ(summary.find("bad RTCP"), std::string::npos) << summary;
    return summary;
}

/// A kind of camera, and the name of its format.
struct SKind {
    const char* streams;
    const char* type;
    friend void PrintTo(const SKind& kind, std::ostream* out) { *out << kind.streams; }
};
class EachKind : public testing::TestWithParam<SKind> {
   protected:
    static std::string Camera(const std::string& settings) {
        return std::string("127.0.0.11,size=64x48,streams=") + GetParam().streams + "," + settings;
    }
};
INSTANTIATE_TEST_SUITE_P(RateAndReport, EachKind,
                         testing::Values(SKind{"raw", "raw"}, SKind{"mjls", "jls"}),
                         [](const auto& kind) { return std::string(kind.param.streams); });

// A raw camera gets the rate by its node tree within the session, a compressed one by the SETUP of
// a new session. The host's callback remains in both cases.
TEST_P(EachKind, ARunningStreamTakesANewRate) {
    CSimulator camera({Camera("rate=5")});
    CShell shell;
    ASSERT_TRUE(shell.Stream(GetParam().type));
    EXPECT_FALSE(shell.Ok("set FrameRate fast"));
    ASSERT_TRUE(shell.Ok("set FrameRate 50"));
    EXPECT_EQ(shell("get /FrameRate")["value"], 50);
    ASSERT_TRUE(shell.Ok("clear"));
    EXPECT_TRUE(shell.Ok("wait 20 3000"));  // at the old rate there are 15 in that time
    ASSERT_TRUE(shell.Ok("set FrameRate 5"));
    ASSERT_TRUE(shell.Ok("clear"));
    EXPECT_FALSE(shell.Ok("wait 15 1000"));  // at the old rate there are 50 in that time
    EXPECT_TRUE(shell.Ok("wait 3 20000"));
    const json callback = shell("callback");
    EXPECT_TRUE(callback["callback"] == true && callback["context"] == true);
    EXPECT_TRUE(shell.Ok("stop"));
    const bool raw = std::string(GetParam().streams) == "raw";
    const std::string summary = End(camera);
    EXPECT_TRUE(Contains(summary, raw ? "stream 1:" : "stream 3:")) << summary;
    EXPECT_FALSE(Contains(summary, raw ? "stream 2:" : "stream 4:")) << summary;
}

TEST_P(EachKind, APauseKeepsSessionAndReceiver) {
    CSimulator camera({Camera("rate=60")});
    CShell shell;
    ASSERT_TRUE(shell.Stream(GetParam().type));
    const std::size_t threads = shell.Threads();
    const std::size_t descriptors = shell.Descriptors();
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(shell.Ok("set Paused true"));
        EXPECT_EQ(shell("get Paused")["value"], true);
        EXPECT_EQ(shell("state")["streaming"], true);  // the host sees a running stream
        EXPECT_EQ(shell("callback")["callback"], true);
        ASSERT_TRUE(shell.Ok("clear"));
        EXPECT_FALSE(shell.Ok("wait 5 200"));  // except for frames in transit
        EXPECT_EQ(shell.Threads(), threads);
        EXPECT_EQ(shell.Descriptors(), descriptors);
        ASSERT_TRUE(shell.Ok("set Paused false"));
        EXPECT_EQ(shell("get Paused")["value"], false);
        ASSERT_TRUE(shell.Ok("clear"));
        EXPECT_TRUE(shell.Ok("wait 5 20000"));
    }
    EXPECT_TRUE(shell.Ok("stop"));
    const std::string summary = End(camera);
    EXPECT_TRUE(Contains(summary, "stream 1:") && !Contains(summary, "stream 2:")) << summary;
    EXPECT_TRUE(Contains(summary, "1 goodbyes")) << summary;
}

TEST(RateAndReport, TheCommandLineGetsAndSets) {
    const CSimulator cameras(
        {"127.0.0.11,size=64x48,rate=7", "127.0.0.12,size=64x48,streams=mjls,rate=7"});
    for (const std::string address : {"127.0.0.11", "127.0.0.12"}) {
        const SOutcome get = RunProgram({"qmxhost", "get", address, "--json"});
        EXPECT_EQ(get.status, 0) << get.errors;
        // The rate of a compressed camera cannot be read; this is the one that the host would
        // request.
        EXPECT_EQ(json::parse(get.output)["properties"],
                  (json{{"/FrameRate", address.ends_with("11") ? 7 : 9},
                        {"/Paused", true},
                        {"/InitialFrameRate", 9},
                        {"/UseInitialFrameRate", false}}));
        const SOutcome set = RunProgram({"qmxhost", "set", address, "FrameRate=12"});
        EXPECT_EQ(set.status, 0) << set.errors;
        EXPECT_EQ(set.output, "/FrameRate=12.0\n");
        EXPECT_EQ(RunProgram({"qmxhost", "set", address, "FrameRate=fast"}).status, 2);
    }
}

// Without sender reports the receiver sends only its initial report; with them it reports at every
// fourth.
TEST(RateAndReport, ASilentReceiverLosesItsStream) {
    CSimulator cameras({"127.0.0.11,size=64x48,rate=50,sr=0,rtcp-timeout=1.5",
                        "127.0.0.12,size=64x48,rate=50,sr=0.1,rtcp-timeout=1.5"});
    CShell silent;
    ASSERT_TRUE(silent.Stream());
    CShell reporting;
    ASSERT_TRUE(reporting.Stream("raw", "127.0.0.12"));
    EXPECT_TRUE(WaitFor([&] { return silent.Ok("clear") && !silent.Ok("wait 1 500"); }));
    EXPECT_TRUE(silent.Ok("set Paused true"));
    EXPECT_EQ(silent("get Paused")["value"], false);  // there is no session any more
    EXPECT_TRUE(reporting.Ok("wait 110 20000"));      // 2.2 s
    EXPECT_TRUE(reporting.Ok("set Paused true"));
    EXPECT_TRUE(reporting.Ok("sleep 1600"));  // in a pause there are no sender reports to answer
    EXPECT_TRUE(reporting.Ok("set Paused false"));
    EXPECT_TRUE(reporting.Ok("clear") && reporting.Ok("wait 20 20000") && reporting.Ok("stop"));

    EXPECT_TRUE(silent.Ok("new"));  // the camera is free again
    EXPECT_TRUE(silent.Stream() && silent.Ok("stop"));
    const std::string summary = End(cameras);
    const std::string reason = "ended because no RTCP came from its receiver for 1.5 s";
    EXPECT_TRUE(Contains(summary, reason)) << summary;
    EXPECT_EQ(summary.find(reason), summary.rfind(reason)) << summary;
}

}  // namespace
