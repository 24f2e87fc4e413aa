// How a receiver uses the sockets and thread identifiers of this system.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <latch>
#include <memory>

#include "RtpReceiver.h"
#include "support/Resources.h"
#include "support/RtpPeers.h"

namespace {

using namespace qmx::cam;
using test::DescriptorCount;

// A host that opens and closes cameras for days must not run out of descriptors.
TEST(RtpSockets, NoneIsLeftOpen) {
    const std::size_t before = DescriptorCount();
    const platform::SocketHandle firstFree = platform::CSocket(platform::OpenUdpSocket()).handle();
    {
        CRtpReceiver receiver;
        ASSERT_TRUE(receiver.CreateSockets() && receiver.CreateSockets());
        EXPECT_EQ(DescriptorCount(), before + 2);
        receiver.Reset();
        EXPECT_EQ(DescriptorCount(), before);
        for (const rlim_t allowed : {0u, 1u}) {
            ASSERT_TRUE(receiver.CreateSockets());
            rlimit usual{};
            ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
            const rlimit scarce{firstFree + allowed, usual.rlim_max};
            ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &scarce), 0);
            EXPECT_FALSE(receiver.CreateSockets());
            ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
            EXPECT_TRUE(receiver.GetRtpPort() == 0 && receiver.GetRtcpPort() == 0);
            EXPECT_EQ(DescriptorCount(), before) << allowed;
        }
        ASSERT_TRUE(receiver.CreateSockets());
    }
    EXPECT_EQ(DescriptorCount(), before);
}

/// Starts a run and returns the thread that delivered its first frame.
std::thread::id Begin(CRtpReceiver& receiver, test::CFrames& frames) {
    EXPECT_TRUE(receiver.CreateSockets());
    EXPECT_TRUE(receiver.Start("ZRAW", test::CFrames::Callback, &frames));
    test::CUdpPeer().SendFrame(receiver.GetRtpPort(), 1, "abcd");
    EXPECT_TRUE(frames.WaitFor(1));
    return *frames.threads.begin();
}

/// Returns the size of the receive buffer of the socket that is bound to a port.
std::optional<std::int32_t> ReceiveBufferOf(std::uint16_t port) {
    for (platform::SocketHandle handle = 0; handle < 256; ++handle) {
        if (platform::LocalPort(handle) == port) return platform::ReceiveBufferSize(handle);
    }
    return std::nullopt;
}

// The system's default holds only a fraction of a frame.
TEST(RtpSockets, ReceiveBufferIsEightTimesTheDefault) {
    const platform::CSocket usual(platform::OpenUdpSocket());
    const platform::CSocket raised(platform::OpenUdpSocket());
    const auto bytes = platform::ReceiveBufferSize(usual.handle());
    ASSERT_TRUE(bytes && platform::SetReceiveBufferSize(raised.handle(), 8 * *bytes));
    test::CFrames frames;
    CRtpReceiver receiver;
    Begin(receiver, frames);
    const auto actual = ReceiveBufferOf(receiver.GetRtpPort());
    EXPECT_EQ(actual, platform::ReceiveBufferSize(raised.handle()));
    EXPECT_GT(actual, bytes);
    EXPECT_EQ(ReceiveBufferOf(receiver.GetRtcpPort()), bytes);
}

// The system reuses the identifier of a thread that has ended. A host thread that gets the one of
// the last run's RTP thread must not be taken for it when it stops or destroys the receiver.
TEST(RtpSockets, AReusedThreadIdentifierIsNoRtpThread) {
    auto receiver = std::make_unique<CRtpReceiver>();
    test::CFrames frames;
    const std::thread::id ended = Begin(*receiver, frames);
    ASSERT_TRUE(receiver->Stop());
    constexpr int count = 8;  // more than the threads that have ended
    std::latch started(count);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            started.arrive_and_wait();
            if (std::this_thread::get_id() != ended) return;
            EXPECT_NO_THROW(receiver->Stop());
            receiver.reset();
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(receiver, nullptr) << "no thread got the identifier";
}

}  // namespace
