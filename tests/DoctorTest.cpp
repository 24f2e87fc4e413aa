// The doctor of the small host: each fault is set up in the simulator or in the network namespace,
// and must be named, without blame for anything else. Pictures are small and rates low, so that a
// slow machine keeps up.
#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "NetworkCounters.h"
#include "support/Program.h"
#include "support/Resources.h"

namespace {

using nlohmann::json;
using test::Contains;
using test::CProgram;
using test::CSimulator;
using test::InShell;
using test::RunProgram;
using test::SOutcome;
using test::WaitFor;

constexpr const char* small = "127.0.0.11,name=Roof,size=64x48,rate=10";

/// Discards UDP at a hook of the namespace's firewall, except multicast DNS, during its lifetime.
class CFirewall {
   public:
    explicit CFirewall(const std::string& hook) {
        const std::string rule =
            "nft add table ip korutest && nft add chain ip korutest c '{ type "
            "filter hook " +
            hook +
            " priority 0; }' && nft add rule ip "
            "korutest c udp dport != 5353 drop";
        EXPECT_EQ(RunProgram(InShell(rule)).status, 0);
    }
    ~CFirewall() { EXPECT_EQ(RunProgram(InShell("nft delete table ip korutest")).status, 0); }
    CFirewall(const CFirewall&) = delete;
    CFirewall& operator=(const CFirewall&) = delete;
};

/// Runs the doctor, which is stopped in mid-stream until datagrams have been dropped if `stop` is
/// set. It must not need more than a stream of a second or two.
SOutcome RunDoctor(const std::string& camera, bool stop) {
    const platform::SUdpCounters before = platform::UdpCounters();
    CProgram doctor({"qmxhost", "doctor", camera, "--seconds", "2", "--json"});
    if (stop) {
        // Some frames have arrived, of about 120 datagrams each.
        EXPECT_TRUE(
            WaitFor([&] { return *platform::UdpCounters().received > *before.received + 700; }));
        doctor.Signal(SIGSTOP);
        EXPECT_TRUE(
            WaitFor([&] { return *platform::UdpCounters().dropped > *before.dropped + 100; }));
        doctor.Signal(SIGCONT);
    }
    SOutcome outcome{};
    outcome.output = doctor.ReadAll();
    outcome.status = doctor.Wait();
    outcome.errors = doctor.Errors();
    return outcome;
}

/// Returns the steps that are not ok, without their format, such as "node tree, stream".
std::string Troubled(const json& report) {
    std::string names;
    for (const json& step : report["steps"]) {
        if (step["result"] == "ok") continue;
        const std::string name = step["step"];
        const std::size_t comma = name.find(", ");
        names += (names.empty() ? "" : ", ") +
                 (comma == std::string::npos ? name : name.substr(comma + 2));
    }
    return names;
}

struct SFault {
    const char* name;
    std::string camera;    // of the simulator; empty for none
    const char* examined;  // address or name
    int status;
    const char* troubled;
    const char* cause;
    const char* firewall = "";
    bool otherClient = false;
    bool stop = false;
    friend void PrintTo(const SFault& fault, std::ostream* out) { *out << fault.name; }
};

class Doctor : public testing::TestWithParam<SFault> {};

TEST_P(Doctor, NamesTheFault) {
    const SFault& fault = GetParam();
    const std::string missing = *fault.firewall != 0 ? test::MissingTool("nft list ruleset") : "";
    if (!missing.empty()) GTEST_SKIP() << missing;
    std::unique_ptr<CSimulator> camera;
    if (!fault.camera.empty()) camera.reset(new CSimulator({fault.camera}));
    std::unique_ptr<CFirewall> firewall;
    if (*fault.firewall != 0) firewall.reset(new CFirewall(fault.firewall));
    std::unique_ptr<CProgram> other;
    if (fault.otherClient) {
        other.reset(new CProgram({"qmxhost", "stream", fault.examined, "--json"}));
        EXPECT_FALSE(other->ReadLine().empty());  // it streams
    }
    const SOutcome outcome = RunDoctor(fault.examined, fault.stop);
    SCOPED_TRACE(outcome.output + outcome.errors);
    EXPECT_EQ(outcome.status, fault.status);
    if (outcome.output.empty()) {  // there is nothing to examine
        EXPECT_TRUE(Contains(outcome.errors, fault.cause));
        return;
    }
    const json report = json::parse(outcome.output);
    EXPECT_EQ(Troubled(report), fault.troubled);
    EXPECT_TRUE(Contains(report["cause"], fault.cause));
}

const std::string base = small;
INSTANTIATE_TEST_SUITE_P(
    Faults, Doctor,
    testing::Values(
        SFault{"None", base, "Roof", 0, "", "No fault was found"},
        SFault{"NoSuchName", base, "Floor", 3, "", "no camera named 'Floor'; found: Roof"},
        SFault{"Unreachable", "", "192.0.2.1", 1, "route", "no route to 192.0.2.1"},
        SFault{"NothingThere", "", "127.0.0.11", 1, "RTSP",
               "There is no camera at 127.0.0.11: it refuses"},
        SFault{"NoTree", base + ",tree=off", "127.0.0.11", 1, "node tree",
               "refuses connections to TCP port 4554"},
        SFault{"OtherKind", base + ",tree=gcam", "Roof", 1, "node tree", "another kind"},
        SFault{"SwitchedOff", base + ",tree=switched-off", "Roof", 1, "node tree",
               "RTSP streaming is disabled"},
        SFault{"Silent", base + ",quirk=silent", "127.0.0.11", 1, "RTSP",
               "does not respond to requests"},
        SFault{"NoUsableStream", base + ",streams=mjpg", "127.0.0.11", 1, "RTSP",
               "neither a raw nor a JPEG-LS stream"},
        SFault{"PlayRefused", base + ",quirk=refuse-play", "127.0.0.11", 1, "stream",
               "it refused PLAY with 500"},
        SFault{"OtherClient", base, "127.0.0.11", 1, "stream",
               "it refused SETUP with 453 Not Enough Bandwidth: another client", "", true},
        SFault{"FirewallHere", base, "127.0.0.11", 1, "stream", "firewall on this machine",
               "input"},
        SFault{"FirewallOnTheWay", base, "127.0.0.11", 1, "stream",
               "no UDP from it reaches this machine", "output"},
        SFault{"LossBefore", base + ",loss=0.05", "127.0.0.11", 1, "missing frames",
               "lost before they reach this machine"},
        SFault{"LossOfCodedFrames", base + ",streams=mjls,mtu=300,loss=0.05", "127.0.0.11", 1,
               "missing frames", "before they reach this machine"},
        SFault{"Disorder", base + ",reorder=0.05", "127.0.0.11", 1, "missing frames",
               "reorders or repeats"},
        SFault{"HostStopped", "127.0.0.11,size=320x240,rate=20", "127.0.0.11", 1, "missing frames",
               "this program did not run for", "", false, true},
        SFault{"SlowCamera", base + ",quirk=half-rate", "127.0.0.11", 1, "frame rate",
               "only 5.0 frames/s instead of the 10.0"},
        SFault{"CameraSkips", base + ",quirk=skip-frames", "127.0.0.11", 1, "missing frames",
               "The camera skips frames"},
        SFault{"FrameBeyondBuffer", "127.0.0.11,size=1024x864,mtu=9000,rate=2", "127.0.0.11", 0,
               "receive buffer", "larger than the receive buffer"}),
    [](const auto& fault) { return std::string(fault.param.name); });

}  // namespace
