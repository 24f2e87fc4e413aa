// A complete run on the wire, as an independent protocol analyser sees it.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <sstream>
#include <vector>

#include "support/NetworkCapture.h"
#include "support/Program.h"

namespace {

using test::CProgram;
using test::CSimulator;

struct SReport {
    std::string types;
    std::string ssrc;
    unsigned jitter = 0;
    unsigned delay = 0;
    unsigned lost = 0;
};

TEST(Capture, EveryPacketIsWellFormedAndEveryReportTrue) {
    if (const auto missing = test::MissingTool("tshark --version"); !missing.empty()) {
        GTEST_SKIP() << missing;
    }
    const std::string file = testing::TempDir() + "run" + std::to_string(::getpid()) + ".pcapng";
    CSimulator camera({"127.0.0.11,name=Roof,size=64x48,rate=60,sr=0.1,loss=0.01,seed=3"});
    test::CNetworkCapture capture(file);
    CProgram host({"qmxhost", "stream", "Roof", "--count", "100", "--rate", "50"});
    EXPECT_EQ(host.Wait(), 0) << host.Errors();
    camera.Signal(SIGTERM);
    EXPECT_EQ(camera.Wait(), 0);
    capture.EndAfter("rtcp.pt == 203");

    EXPECT_EQ(capture.Read({"-Y", "_ws.malformed || _ws.expert.severity == error"}), "");
    for (const char* protocol : {"mdns", "rtsp", "sdp", "rtp", "rtcp"}) {
        EXPECT_NE(capture.Read({"-Y", protocol}), "") << protocol;
    }
    EXPECT_EQ(capture.Read({"-Y", "rtsp.method", "-T", "fields", "-e", "rtsp.method"}),
              "OPTIONS\nDESCRIBE\nSETUP\nPLAY\nPAUSE\nTEARDOWN\n");

    // The receiver sent one initial packet, reports, and a BYE, all from one source.
    std::istringstream reports(
        capture.Read({"-Y", "rtcp && ip.dst == 127.0.0.11", "-T", "fields", "-E", "separator=/s",
                      "-e", "rtcp.pt", "-e", "rtcp.senderssrc", "-e", "rtcp.ssrc.jitter", "-e",
                      "rtcp.ssrc.dlsr", "-e", "rtcp.ssrc.cum_nr"}));
    std::vector<SReport> sent;
    for (std::string line; std::getline(reports, line);) {
        SReport& next = sent.emplace_back();  // the first packet has only the first two fields
        std::istringstream(line) >> next.types >> next.ssrc >> next.jitter >> next.delay >>
            next.lost;
    }
    ASSERT_GE(sent.size(), 3u);
    EXPECT_EQ(sent.front().types, "201,202");
    EXPECT_EQ(sent.back().types, "201,202,203");
    EXPECT_GT(sent.back().delay, 0u);
    for (std::size_t i = 1; i < sent.size(); ++i) {
        EXPECT_EQ(sent[i].ssrc, sent.front().ssrc);
        EXPECT_EQ(sent[i].jitter, 0u);
        if (i + 1 == sent.size()) continue;
        EXPECT_EQ(sent[i].types, "201,202");
        EXPECT_EQ(sent[i].delay, 0u) << "sent at the moment of the sender report";
    }
    // The total loss is what the simulator dropped after the count had begun.
    const std::string summary = camera.Errors();
    EXPECT_NE(summary.find("network: " + std::to_string(sent.back().lost) + " lost"),
              std::string::npos)
        << sent.back().lost << " in " << summary;
    std::filesystem::remove(file);
}

}  // namespace
