#include "RtpReceiver.h"

#include <gtest/gtest.h>

#include "support/RtpPeers.h"

namespace {

using namespace qmx::cam;
using test::CFrames;
using test::CUdpPeer;

/// Returns a JPEG-LS frame that fills a datagram of the given size.
std::string Frame(std::size_t size, char filler) {
    return "head\xFF\xD8\xFF\xF7" + std::string(size - 20, filler);
}

TEST(RtpReceiver, DeliversFromItsOwnThreadUntilStopped) {
    CRtpReceiver receiver;
    CFrames frames;
    const CUdpPeer camera;
    for (int run = 0; run < 2; ++run) {
        ASSERT_TRUE(receiver.CreateSockets());
        const std::uint16_t port = receiver.GetRtpPort();
        ASSERT_TRUE(receiver.SetServerAddress("127.0.0.1", 9));
        EXPECT_FALSE(receiver.Start("JPEG", CFrames::Callback, &frames));
        ASSERT_TRUE(receiver.Start("MJLS", CFrames::Callback, &frames));
        EXPECT_FALSE(receiver.CreateSockets()) << "the threads keep their sockets";
        EXPECT_FALSE(receiver.Start("ZRAW", CFrames::Callback, nullptr));
        camera.Send(port, "not RTP");
        camera.SendRtp(port, 1, 1, true, Frame(16384, 1));
        camera.SendRtp(port, 2, 2, true, Frame(16385, 2));  // one byte too many: lost, not cut
        camera.SendRtp(port, 3, 3, true, Frame(20, 3));
        EXPECT_TRUE(frames.WaitFor(2));
        EXPECT_TRUE(receiver.Stop());
        EXPECT_FALSE(receiver.IsRunning());
        EXPECT_EQ(receiver.GetRtpPort(), port);
        EXPECT_EQ(frames.frames, (std::vector<std::string>{Frame(16384, 1), Frame(20, 3)}));
        EXPECT_EQ(frames.threads.size(), 1u);
        EXPECT_FALSE(frames.threads.contains(std::this_thread::get_id()));
        frames.frames.clear();
        frames.threads.clear();
    }
}

// Any sender to the port counts as the camera. Two senders cost each other frames, a sender that
// restarts loses its current frame, and no frame is ever a mixture.
TEST(RtpReceiver, NeverMixesFrames) {
    CRtpReceiver receiver;
    CFrames frames;
    const CUdpPeer one;
    const CUdpPeer two;
    ASSERT_TRUE(receiver.CreateSockets() && receiver.Start("ZRAW", CFrames::Callback, &frames));
    const std::uint16_t port = receiver.GetRtpPort();
    one.SendLine(port, 1, 1, 0, false, "aaaa");
    two.SendLine(port, 101, 7, 0, false, "bbbb");
    one.SendLine(port, 2, 1, 1, true, "AAAA");
    two.SendLine(port, 102, 7, 1, true, "BBBB");
    two.SendFrame(port, 103, "cccc");
    one.SendLine(port, 3, 3, 0, false, "dddd");
    one.SendLine(port, 54, 3, 1, true, "DDDD");
    one.SendLine(port, 55, 4, 0, false, "eeee");
    one.SendLine(port, 56, 4, 1, true, "EEEE");
    EXPECT_TRUE(frames.WaitFor(2));
    receiver.Stop();
    EXPECT_EQ(frames.frames, (std::vector<std::string>{"cccc", "eeeeEEEE"}));
}

}  // namespace
