// Cameras that come back from packet captures: a receiver must get the same frames, and miss the
// same ones, as the one whose stream was captured.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/Folder.h"
#include "support/NetworkCapture.h"
#include "support/Program.h"

namespace {

using test::Contains;
using test::CProgram;
using test::CSimulator;
using test::InShell;
using test::RunProgram;

/// Commands of the tests, with the folder of their files as $DIR.
class CWorkshop {
   public:
    void Run(const std::string& command) const {
        const auto outcome = RunProgram(InShell("cd " + folder.path + "; " + command));
        ASSERT_EQ(outcome.status, 0) << command << "\n" << outcome.errors;
    }
    /// Captures the stream that a command receives up to its TEARDOWN, and saves it as a pcap file.
    void Capture(const std::string& name, const std::string& command) const {
        const std::string raw = File(name) + ".pcapng";
        test::CNetworkCapture capture(raw);
        Run(command);
        capture.EndAfter("rtsp.method == \"TEARDOWN\"");
        Run("editcap -F pcap " + raw + " " + name);
    }
    std::string Rewrite(const std::string& kind, const std::string& name) const {
        const std::string other = kind + "-" + name;
        Run(KORU_TEST_DIR "/rewrite-capture " + kind + " " + name + " " + other);
        return other;
    }
    /// Returns fields of the packets that match a filter, one line per packet.
    [[nodiscard]] std::string Fields(const std::string& name, const std::string& filter,
                                     const std::string& fields) const {
        return RunProgram(InShell("tshark -r " + File(name) + " -Y '" + filter +
                                  "' -T fields -E separator=/s " + fields))
            .output;
    }
    [[nodiscard]] std::string File(const std::string& name) const {
        return folder.path + "/" + name;
    }

   private:
    const test::SFolder folder;
};

std::string Receive(const std::string& address, const std::string& type, const std::string& name) {
    return "qmxhost stream " + address + " --no-tree --type " + type + " --count 12 --save " + name;
}

struct SPacket {
    std::uint32_t sequence;
    std::uint32_t timestamp;
};
constexpr const char* packetFields = "-e rtp.seq -e rtp.timestamp";

std::vector<SPacket> PacketsOf(const std::string& fields) {
    std::istringstream lines(fields);
    std::vector<SPacket> packets;
    for (SPacket next{}; lines >> next.sequence >> next.timestamp;) packets.push_back(next);
    return packets;
}

class Replay : public testing::Test {
   protected:
    void SetUp() override {
        for (const char* const tool :
             {"tshark --version", "editcap --version", "ffmpeg -version"}) {
            const auto missing = test::MissingTool(std::string(tool) + " >/dev/null 2>&1");
            if (!missing.empty()) GTEST_SKIP() << missing;
        }
    }
    CWorkshop workshop;
};

TEST_F(Replay, HasTheFramesOfTheCapturedStream) {
    const std::vector<std::string> types{"raw", "jls", "jpeg"};
    struct SRow {
        std::string type;
        std::string capture;
        std::string settings{};
    };
    std::vector<SRow> rows;
    for (const std::string& type : types) {
        const CSimulator camera(
            {"127.0.0.11,size=64x48,rate=10,loss=0.02,duplicate=0.02,"
             "reorder=0.02,sr=0.5,seed=3,streams=" +
             std::string(type == "raw" ? "raw" : "mjls+mjpg")});
        workshop.Capture(type, Receive("127.0.0.11", type, type + "-frames"));
        rows.push_back({type, type});
        // Without a description of JPEG-LS the host does not open a JPEG camera.
        if (type != "jpeg") rows.push_back({type, workshop.Rewrite("udp", type), ",stream=1"});
    }
    workshop.Run("head -c -20 raw > short");  // in the middle of the last packet
    rows.push_back({"raw", "short"});
    for (const char* const kind :
         {"vlan", "cooked", "cooked2", "raw", "loopback", "fragments", "disordered", "cut"}) {
        rows.push_back({"raw", workshop.Rewrite(kind, "raw")});
    }

    std::vector<std::string> cameras;
    for (const SRow& row : rows) {
        cameras.push_back("127.0.0." + std::to_string(31 + cameras.size()) +
                          ",capture=" + workshop.File(row.capture) + row.settings);
    }
    const CSimulator replays(cameras);
    std::vector<std::unique_ptr<CProgram>> hosts;
    for (const SRow& row : rows) {
        hosts.push_back(std::make_unique<CProgram>(
            InShell(Receive("127.0.0." + std::to_string(31 + hosts.size()), row.type,
                            workshop.File(row.capture + "-again")))));
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(hosts[i]->Wait(), 0) << rows[i].capture << hosts[i]->Errors();
        workshop.Run("diff -r -x index.jsonl " + rows[i].type + "-frames " + rows[i].capture +
                     "-again");
    }
}

TEST_F(Replay, RepeatsWithoutAGap) {
    {
        const CSimulator camera({"127.0.0.11,size=64x48,rate=20,sr=0.5"});
        workshop.Capture("raw", Receive("127.0.0.11", "raw", "frames"));
    }
    // The clock of the capture is a million seconds behind that of the camera.
    workshop.Run("editcap -F pcap -t -1000000 raw moved");
    // A busy machine skips frames in the captured stream.
    const std::vector<SPacket> original = PacketsOf(workshop.Fields("raw", "rtp", packetFields));
    std::uint32_t longest = 0;
    std::set<std::uint32_t> frames;
    for (std::size_t i = 0; i < original.size(); ++i) {
        frames.insert(original[i].timestamp - original[0].timestamp);
        if (i != 0) longest = std::max(longest, original[i].timestamp - original[i - 1].timestamp);
    }
    ASSERT_GE(frames.size(), 12u);
    const double originalRate =
        90'000.0 * static_cast<double>(frames.size() - 1) / static_cast<double>(*frames.rbegin());

    CSimulator camera({"127.0.0.31,capture=" + workshop.File("moved") + ",loop=on"});
    const auto promised = RunProgram({"qmxhost", "get", "127.0.0.31", "FrameRate"});
    double rate = 0;
    std::sscanf(promised.output.c_str(), "/FrameRate=%lf", &rate);
    EXPECT_NEAR(rate, originalRate, 0.5) << promised.output << promised.errors;
    workshop.Capture("again", "qmxhost stream 127.0.0.31 --no-tree --check --count 30");
    const std::vector<SPacket> again = PacketsOf(workshop.Fields("again", "rtp", packetFields));
    EXPECT_GE(again.size(), 30u * 10);
    for (std::size_t i = 1; i < again.size(); ++i) {
        EXPECT_EQ(again[i].sequence, std::uint16_t(again[i - 1].sequence + 1)) << i;
        EXPECT_LE(again[i].timestamp - again[i - 1].timestamp, longest + 1) << i;
    }
    std::istringstream reports(workshop.Fields("again", "rtcp.pt == 200",
                                               "-e rtcp.timestamp.ntp.msw -e frame.time_epoch"));
    double ntp = 0;
    double now = 0;
    while (reports >> ntp >> now) EXPECT_NEAR(ntp - 2'208'988'800 - now, 1'000'000, 100);
    EXPECT_NE(ntp, 0);
    camera.Signal(SIGTERM);
    EXPECT_EQ(camera.Wait(), 0);
    EXPECT_FALSE(Contains(camera.Errors(), "bad RTCP")) << camera.Errors();
}

// A camera by other authors, with its control URLs, and a player as the receiver.
TEST_F(Replay, BringsBackAForeignCameraForAPlayer) {
    const std::string load =
        "/usr/bin/python3 -c \"import gi; gi.require_version('GstRtspServer', '1.0')\"";
    if (const auto missing = test::MissingTool(load); !missing.empty()) GTEST_SKIP() << missing;
    const auto play = [](const std::string& address, const std::string& transport,
                         const std::string& to) {
        return "ffmpeg -nostdin -v error -rtsp_transport " + transport + " -i rtsp://" + address +
               "/mjpg -frames:v 20 -fps_mode passthrough -f framehash -hash md5 - | grep -v '^#' |"
               " sed 's/.*,//' > " +
               to;
    };
    {
        CProgram camera({KORU_TEST_DIR "/gst-camera", "127.0.0.21"});
        ASSERT_EQ(camera.ReadLine(), "ready");
        workshop.Capture("gst", play("127.0.0.21", "udp", "original"));
    }
    const CSimulator camera({"127.0.0.31,capture=" + workshop.File("gst")});
    workshop.Run(play("127.0.0.31", "udp", "again"));
    workshop.Run("[ $(wc -l < original) = 20 ] && diff original again");
}

TEST_F(Replay, SaysWhyACaptureCannotBeReplayed) {
    {
        const CSimulator camera({"127.0.0.11,size=64x48,rate=10"});
        workshop.Capture("raw", Receive("127.0.0.11", "raw", "frames"));
        workshop.Capture("later", Receive("127.0.0.11", "raw", "frames-later"));
    }
    workshop.Run(
        "editcap -F pcap -s 96 raw snapped && editcap -F pcap -s 400 raw half && mergecap -F pcap "
        "-w two raw later &&"
        "tshark -r raw -Y 'not udp' -F pcap -w no-packets &&"
        "tshark -r raw -Y 'rtcp or mdns' -F pcap -w nothing &&"
        "sed 's/client_port=[0-9]*-[0-9]*/interleaved=0-1;;;;;;;;/g' raw > interleaved &&"
        "echo text > text && touch empty && mkfifo pipe");
    for (const char* const kind : {"encrypted", "other-link", "udp"}) workshop.Rewrite(kind, "raw");
    const struct {
        const char* capture;
        const char* says;
    } rows[] = {
        {"nowhere", "/nowhere: No such file or directory"},
        {".", "it is a folder"},
        {"pipe", "it is not a file"},
        {"text", "unknown file format"},
        {"empty", "truncated dump file"},
        {"other-link-raw", "is not supported; capture on an Ethernet interface"},
        {"nothing", "packets belongs to an RTP stream over UDP and IPv4"},
        {"no-packets", "has no RTP packets in the capture"},
        {"snapped", "are cut short, so capture whole packets"},
        {"half", "packets cut short; capture whole packets"},
        {"encrypted-raw", "is encrypted (SRTP)"},
        {"interleaved", "is interleaved in its RTSP connection (TCP); capture one over UDP"},
        {"udp-raw", "choose a stream with stream=N: 1: RTP without RTSP from 127.0.0.11 to "},
        {"two", "choose a stream with stream=N: 1: /sid=96 from 127.0.0.11 to 127.0.0.1:"},
        {"two,stream=3", "there is no stream 3: 1: /sid=96 from 127.0.0.11 to 127.0.0.1:"},
    };
    for (const auto& row : rows) {
        const auto outcome =
            RunProgram({"korusim", "127.0.0.31,capture=" + workshop.File(row.capture)});
        EXPECT_EQ(outcome.status, 1) << row.capture;
        EXPECT_TRUE(Contains(outcome.errors, row.says)) << row.capture << ": " << outcome.errors;
        EXPECT_EQ(outcome.errors.find(workshop.File("")), outcome.errors.rfind(workshop.File("")))
            << "names the file twice: " << outcome.errors;
    }
}

}  // namespace
