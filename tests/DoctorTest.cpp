// The doctor of the small host: each fault is set up in the simulator or in the network namespace,
// and must be named, without blame for anything else. Pictures are small and rates low, so that a
// slow machine keeps up.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "NetworkCounters.h"
#include "Socket.h"
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

/// Bytes of the frame that exceeds the usual receive buffer.
constexpr std::uint64_t largeFrame = 2 * 1024 * 864;

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

/// Runs `stop` while a program receives frames of about 120 datagrams, and `go` when its buffer has
/// overflown.
template <class Stop, class Go>
void DropDatagrams(Stop stop, Go go) {
    const platform::SUdpCounters before = platform::UdpCounters();
    EXPECT_TRUE(
        WaitFor([&] { return *platform::UdpCounters().received > *before.received + 700; }));
    stop();
    EXPECT_TRUE(WaitFor([&] { return *platform::UdpCounters().dropped > *before.dropped + 100; }));
    go();
}

void StopUntilDatagramsAreDropped(const CProgram& program, CSimulator&) {
    DropDatagrams([&] { program.Signal(SIGSTOP); }, [&] { program.Signal(SIGCONT); });
}

/// Stops all threads of a program but the main one, as a callback does that blocks.
void BlockUntilDatagramsAreDropped(const CProgram& program, CSimulator&) {
    std::vector<pid_t> threads;
    const auto stop = [&] {
        const std::string tasks = "/proc/" + std::to_string(program.id()) + "/task";
        for (const auto& each : std::filesystem::directory_iterator(tasks)) {
            const pid_t thread = std::stoi(each.path().filename().string());
            if (thread == program.id()) continue;
            EXPECT_EQ(::ptrace(PTRACE_SEIZE, thread, nullptr, nullptr), 0);
            EXPECT_EQ(::ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr), 0);
            EXPECT_EQ(::waitpid(thread, nullptr, __WALL), thread);
            threads.push_back(thread);
        }
    };
    DropDatagrams(stop, [&] {
        for (const pid_t thread : threads) ::ptrace(PTRACE_DETACH, thread, nullptr, nullptr);
    });
}

/// Ends the camera when the stream of a program has delivered frames.
void EndCamera(const CProgram&, CSimulator& camera) {
    const platform::SUdpCounters before = platform::UdpCounters();
    EXPECT_TRUE(
        WaitFor([&] { return *platform::UdpCounters().received > *before.received + 100; }));
    camera.Signal(SIGTERM);
    EXPECT_EQ(camera.Wait(), 0);
}

SOutcome EndOf(CProgram& program) {
    SOutcome outcome{};
    outcome.output = program.ReadAll();
    outcome.status = program.Wait();
    outcome.errors = program.Errors();
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
    void (*meanwhile)(const CProgram&, CSimulator&) = nullptr;
    friend void PrintTo(const SFault& fault, std::ostream* out) { *out << fault.name; }
};

class Doctor : public testing::TestWithParam<SFault> {};

TEST_P(Doctor, NamesTheFault) {
    const SFault& fault = GetParam();
    const std::string missing = *fault.firewall != 0 ? test::MissingTool("nft list ruleset") : "";
    if (!missing.empty()) GTEST_SKIP() << missing;
    const std::uint64_t requested = 8 * *platform::ReceiveBuffers().initial;
    if (fault.troubled == std::string("receive buffer") && requested > largeFrame) {
        GTEST_SKIP() << "net.core.rmem_default is so large that the frame fits into the buffer";
    }
    std::unique_ptr<CSimulator> camera;
    if (!fault.camera.empty()) camera.reset(new CSimulator({fault.camera}));
    std::unique_ptr<CFirewall> firewall;
    if (*fault.firewall != 0) firewall.reset(new CFirewall(fault.firewall));
    std::unique_ptr<CProgram> other;
    if (fault.otherClient) {
        other.reset(new CProgram({"qmxhost", "stream", fault.examined, "--json"}));
        EXPECT_FALSE(other->ReadLine().empty());  // it streams
    }
    CProgram doctor({"qmxhost", "doctor", fault.examined, "--seconds", "3", "--json"});
    if (fault.meanwhile != nullptr) fault.meanwhile(doctor, *camera);
    const SOutcome outcome = EndOf(doctor);
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
        SFault{"NoRtp", base + ",tree=no-rtp", "Roof", 1, "node tree", "it has no RTP streams"},
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
               "Packets are lost"},
        SFault{"LossOfCodedFrames", base + ",streams=mjls,mtu=300,loss=0.05", "127.0.0.11", 1,
               "missing frames", "before they reach this machine"},
        SFault{"Disorder", base + ",reorder=0.05", "127.0.0.11", 1, "missing frames", "reorder"},
        SFault{"Duplicates", base + ",duplicate=0.05", "127.0.0.11", 1, "missing frames",
               "repeats"},
        // Hardly any frame is complete.
        SFault{"ManyDuplicates", "127.0.0.11,size=160x120,rate=20,duplicate=0.1,seed=3",
               "127.0.0.11", 1, "missing frames", "repeated or reordered"},
        SFault{"HostStopped", "127.0.0.11,size=320x240,rate=20", "127.0.0.11", 1, "missing frames",
               "this program did not run for", "", false, StopUntilDatagramsAreDropped},
        SFault{"HostBlocked", "127.0.0.11,size=320x240,rate=20", "127.0.0.11", 1, "missing frames",
               "Packets are lost in the receive buffer of this machine", "", false,
               BlockUntilDatagramsAreDropped},
        SFault{"CameraGone", base, "127.0.0.11", 1, "stream",
               "The camera was lost during the stream", "", false, EndCamera},
        SFault{"SlowCamera", base + ",quirk=half-rate", "127.0.0.11", 1, "frame rate",
               "instead of the 10.0"},
        SFault{"TooShort", "127.0.0.11,size=64x48,rate=1", "127.0.0.11", 0, "missing frames",
               "measure longer"},
        SFault{"CameraSkips", base + ",quirk=skip-frames", "127.0.0.11", 1, "missing frames",
               "The camera skips frames"},
        SFault{"FrameBeyondBuffer", "127.0.0.11,size=1024x864,mtu=9000,rate=2", "127.0.0.11", 0,
               "receive buffer", "larger than the receive buffer"}),
    [](const auto& fault) { return std::string(fault.param.name); });

/// Sends an empty datagram to every UDP port of the namespace that is bound to all addresses.
void SendEmptyDatagrams(const CProgram&, CSimulator&) {
    const platform::CSocket socket(platform::OpenUdpSocket());
    std::ifstream table("/proc/net/udp");
    for (std::string line; std::getline(table, line);) {
        const std::size_t any = line.find(": 00000000:");
        if (any == std::string::npos) continue;
        const auto port =
            static_cast<std::uint16_t>(std::stoul(line.substr(any + 11, 4), nullptr, 16));
        const auto to = platform::MakeSocketAddress(*platform::ParseIpv4("127.0.0.1"), port);
        EXPECT_EQ(platform::SendDatagram(socket.handle(), "", 0, to), 0);
    }
}

// The other commands say the same in short, at once, and without blame for anything else.
TEST(Host, NamesTheCauseOfWhatFails) {
    const std::vector<std::string> stream = {"stream", "127.0.0.11", "--json"};
    const auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), stream.begin(), stream.end());
        return more;
    };
    const struct {
        const char* camera;  // settings after those of `small`
        std::vector<std::string> arguments;
        int status;
        const char* says;
        const char* doesNotSay = "firewall";
        void (*meanwhile)(const CProgram&, CSimulator&) = nullptr;
        const char* firewall = "";
    } cases[] = {
        {",loss=0.05", with({"--duration", "2"}), 0, "missing (estimated from the gaps)",
         "net.core"},
        {",loss=0.05", with({"--duration", "2", "--strict"}), 4, "--strict"},
        {"", with({"--count", "9", "--strict"}), 0, "", "missing"},
        {",reorder=1", with({"--duration", "4"}), 4, "out of order"},
        {",duplicate=1", with({"--duration", "4"}), 4, "out of order"},
        {"", with({"--duration", "1"}), 4, "does a firewall block it?", "lost", nullptr, "input"},
        {"", stream, 4, "an empty datagram has ended reception", "firewall", SendEmptyDatagrams},
        {",size=320x240,rate=20", with({"--size", "320x240", "--duration", "3"}), 0,
         "KiB requested): this program did not run for", "net.core", StopUntilDatagramsAreDropped},
        {",size=320x240,rate=20", with({"--size", "320x240", "--duration", "3"}), 0,
         "because a receive buffer was full", "did not run", BlockUntilDatagramsAreDropped},
        {",size=160x120,rate=20,duplicate=0.1,seed=3",
         with({"--size", "160x120", "--duration", "3", "--strict"}), 4,
         "missing (estimated from the frame rate", "firewall"},
        {",size=64x48,rate=20,duplicate=0.3,seed=3", with({"--size", "64x48", "--count", "5"}), 0,
         "missing (estimated from the frame rate", "sends about"},
        {"", stream, 4, "closed its control connection; start", "lost", EndCamera},
        {",quirk=half-rate", with({"--duration", "3"}), 0, "instead of the 10.0", "missing"},
        {",quirk=refuse-play", stream, 1, "it refused PLAY with 500", "another"},
        {",tree=off", {"formats", "127.0.0.11"}, 1, "refuses connections to TCP port 4554"},
        {",quirk=silent", {"formats", "127.0.0.11"}, 1, "does not respond; restart", "4554"},
        {",tree=switched-off", {"formats", "Roof"}, 3, "skipped: RTSP streaming is disabled"},
        {",tree=no-rtp", {"formats", "Roof"}, 3, "skipped: it has no RTP streams"},
        {"", {"set", "127.0.0.11", "Paused=false"}, 1, "was set to false, but is true"},
        {"", {"set", "127.0.0.11", "FrameRate=5000"}, 1, "node tree refuses it"},
        {",tree=no-rtp", {"get", "127.0.0.11"}, 1, "no frame rate (.rtp.frequency)", "refuses"},
        {",streams=mjls",
         {"set", "127.0.0.11", "FrameRate=5"},
         0,
         "use 'qmxhost stream 127.0.0.11"},
        {",streams=mjls",
         {"stream", "127.0.0.11", "--rate", "9.6", "--count", "2"},
         0,
         "is asked for 10 frames/s instead of 9.60"},
        {"", {"get", "127.0.0.11", "FrameRate", "--no-tree"}, 1, "leaving out --no-tree"},
    };
    for (const auto& row : cases) {
        if (*row.firewall != 0 && !test::MissingTool("nft list ruleset").empty()) continue;
        const bool otherSize = Contains(row.camera, "size");
        CSimulator camera({(otherSize ? "127.0.0.11" : small) + std::string(row.camera)});
        std::unique_ptr<CFirewall> firewall;
        if (*row.firewall != 0) firewall.reset(new CFirewall(row.firewall));
        std::vector<std::string> words = row.arguments;
        words.insert(words.begin(), "qmxhost");
        CProgram host(words);
        std::string first;
        if (row.meanwhile != nullptr) {
            first = host.ReadLine();  // it streams
            row.meanwhile(host, camera);
        }
        const SOutcome outcome = EndOf(host);
        SCOPED_TRACE(row.says + outcome.output + outcome.errors);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_TRUE(Contains(outcome.errors, row.says));
        EXPECT_FALSE(Contains(outcome.errors, row.doesNotSay));
        if (row.meanwhile != SendEmptyDatagrams && row.meanwhile != EndCamera) continue;
        const json summary = json::parse(outcome.output.substr(outcome.output.rfind("{\"kind")));
        EXPECT_GE(summary["longestGapMs"], 1000);
        EXPECT_LT(summary["seconds"], 10);  // unless the end is recognised, it takes 10 s
    }
}

}  // namespace
