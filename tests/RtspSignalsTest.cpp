// Where there are signals: a receive and what comes upon it.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

#include "RtspResponse.h"
#include "support/Resources.h"
#include "support/Sockets.h"

namespace {

using namespace qmx::cam;

std::atomic<int> signalsTaken{0};

/// Signals a thread that is blocked in a call, and waits until it has taken the signal there.
void InterruptBlocked(std::thread& thread, pid_t id) {
    const auto isBlocked = [id] {
        std::ifstream stat("/proc/self/task/" + std::to_string(id) + "/stat");
        std::string text;
        std::getline(stat, text);
        return text.find(") S ") != std::string::npos;
    };
    ASSERT_TRUE(test::WaitFor(isBlocked));
    const int before = signalsTaken;
    ::pthread_kill(thread.native_handle(), SIGUSR1);
    ASSERT_TRUE(test::WaitFor([&] { return signalsTaken > before; }));
}

// A host's profiler or timer may signal the waiting thread at any moment. The receive goes on, and
// its limit is that of one receive, however many signals come.
TEST(RtspSignals, NeitherEndNorProlongAReceive) {
    struct sigaction action {};
    action.sa_handler = [](int) { ++signalsTaken; };
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
    const auto [near, far] = test::ConnectedPair();
    CRtspHeaders headers;
    std::string body;
    std::atomic<pid_t> id{0};
    std::int32_t status = 0;
    std::thread reader([&] {
        id = ::gettid();
        status = ReadResponse(near.handle(), headers, body);
    });
    ASSERT_TRUE(test::WaitFor([&] { return id != 0; }));
    for (const char byte : std::string("RTSP/1.0 200 OK\r\nContent-Length: 1\r\n\r\nb")) {
        InterruptBlocked(reader, id);
        ASSERT_EQ(platform::Send(far.handle(), &byte, 1), 1);
    }
    reader.join();
    EXPECT_EQ(status, 200);

    constexpr std::chrono::milliseconds limit(300);
    ASSERT_TRUE(platform::SetReceiveTimeout(near.handle(), limit.count()));
    std::atomic<bool> done{false};
    const auto begun = std::chrono::steady_clock::now();
    reader = std::thread([&] {
        status = ReadResponse(near.handle(), headers, body);
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
