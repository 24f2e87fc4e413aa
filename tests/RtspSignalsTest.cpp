// Where there are signals: a receive and what comes upon it.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "RtspResponse.h"
#include "support/Sockets.h"

namespace {

using namespace qmx::cam;

// A host's profiler or timer may signal the waiting thread at any moment, and again and again. That
// neither ends the receive nor prolongs it beyond its limit.
TEST(RtspSignals, NeitherEndNorProlongAReceive) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
    const auto ends = test::ConnectedPair();
    constexpr std::chrono::milliseconds limit(300);
    ASSERT_TRUE(platform::SetReceiveTimeout(ends.first.handle(), limit.count()));
    std::atomic<bool> done{false};
    CRtspHeaders headers;
    std::string body;
    std::int32_t status = 0;
    const auto begun = std::chrono::steady_clock::now();
    std::thread reader([&] {
        status = ReadResponse(ends.first.handle(), headers, body);
        done = true;
    });
    while (!done) {  // a receive that each signal prolongs never ends here
        ::pthread_kill(reader.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    reader.join();
    EXPECT_EQ(status, -1);
    EXPECT_GE(std::chrono::steady_clock::now() - begun, limit);
}

}  // namespace
