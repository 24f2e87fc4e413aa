// Signals, child processes and host names: differences from 64-bit Windows that must not show.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Socket.h"
#include "support/Resources.h"
#include "support/Sockets.h"

namespace {

const char* hostName = nullptr;  // null: the system's own
using Clock = std::chrono::steady_clock;

}  // namespace

// Replaces the function of the C library.
int gethostname(char* name, std::size_t size) noexcept {
    std::memset(name, 'h', size);
    if (hostName != nullptr) std::strncpy(name, hostName, size);
    return 0;
}

namespace {

/// Lets SIGUSR1 interrupt system calls and do nothing else.
class SocketSignals : public testing::Test {
   protected:
    void SetUp() override {
        struct sigaction handler {};
        handler.sa_handler = [](int) {};
        ASSERT_EQ(::sigaction(SIGUSR1, &handler, nullptr), 0);
    }
};

/// Runs an action on a thread, signals it again and again, so that its system call is interrupted,
/// and then lets it go on.
void Interrupt(const std::function<void()>& action, const std::function<void()>& goOn) {
    std::atomic<bool> ended{false};
    std::thread thread([&] {
        action();
        ended = true;
    });
    const auto until = Clock::now() + std::chrono::milliseconds(100);
    while (!ended && Clock::now() < until) {
        ::pthread_kill(thread.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    EXPECT_FALSE(ended) << "a signal has ended the call";
    goOn();
    thread.join();
}

TEST_F(SocketSignals, EndNoCall) {
    const auto [one, other] = test::ConnectedPair();
    char byte = 0;
    std::ptrdiff_t result = 0;
    const auto sendOne = [&, &from = other] { (void)platform::Send(from.handle(), "x", 1); };
    Interrupt([&, &at = one] { result = platform::Receive(at.handle(), &byte, 1); }, sendOne);
    EXPECT_EQ(result, 1);

    const platform::CSocket udp(platform::OpenUdpSocket());
    ASSERT_TRUE(platform::BindToAnyPort(udp.handle()));
    const auto to = platform::MakeSocketAddress(*platform::ParseIpv4("127.0.0.1"),
                                                *platform::LocalPort(udp.handle()));
    Interrupt([&] { result = platform::ReceiveDatagram(udp.handle(), &byte, 1); },
              [&] { (void)platform::SendDatagram(udp.handle(), "x", 1, to); });
    EXPECT_EQ(result, 1);

    // The connection is full when it accepts nothing more for some time.
    const int full = static_cast<int>(one.handle());
    const std::vector<char> much(65536);
    pollfd writable{full, POLLOUT, 0};
    bool taken = true;
    while (taken) {
        taken = ::poll(&writable, 1, 200) > 0;
        while (::send(full, much.data(), much.size(), MSG_DONTWAIT) > 0) taken = true;
    }
    Interrupt([&, &at = one] { result = platform::Send(at.handle(), "x", 1); },
              [&, &at = other] {
                  std::vector<char> drain(1 << 20);
                  while (::recv(static_cast<int>(at.handle()), drain.data(), drain.size(),
                                MSG_DONTWAIT) > 0) {
                  }
              });
    EXPECT_EQ(result, 1);
}

// The system continues to connect after the call has been interrupted.
TEST_F(SocketSignals, EndNoConnection) {
    const platform::CSocket listener = test::Listen("127.0.0.1", 0);
    const auto to = platform::MakeSocketAddress(*platform::ParseIpv4("127.0.0.1"),
                                                *platform::LocalPort(listener.handle()));
    std::vector<platform::CSocket> queued;
    do {
        queued.emplace_back(platform::OpenTcpSocket());
    } while (platform::ConnectWithTimeout(queued.back().handle(), to, 200));
    const platform::CSocket socket(platform::OpenTcpSocket());
    bool connected = false;
    Interrupt([&] { connected = platform::ConnectSocket(socket.handle(), to); },
              [&] {
                  queued.clear();
                  while (test::Readable(listener, 0)) (void)test::Accept(listener);
              });
    EXPECT_TRUE(connected);
}

// However many signals arrive, a receive takes no longer than its time-out.
TEST_F(SocketSignals, DoNotExtendATimeOut) {
    const auto [one, other] = test::ConnectedPair();
    char byte = 0;
    ASSERT_TRUE(platform::SetReceiveTimeout(one.handle(), 150));
    const auto begun = Clock::now();
    std::atomic<bool> ended{false};
    std::thread reader([&, &at = one] {
        EXPECT_EQ(platform::Receive(at.handle(), &byte, 1), -1);
        ended = true;
    });
    while (!ended) ::pthread_kill(reader.native_handle(), SIGUSR1);
    reader.join();
    EXPECT_GE(Clock::now() - begun, std::chrono::milliseconds(150));
}

TEST(SocketPosix, ChildProcessesInheritNothing) {
    for (const auto open : {platform::OpenTcpSocket, platform::OpenUdpSocket}) {
        const platform::CSocket socket(open());
        EXPECT_EQ(::fcntl(static_cast<int>(socket.handle()), F_GETFD), FD_CLOEXEC);
    }
}

TEST(SocketPosix, RefusesAHostNameWithoutAnEnd) {
    char name[8];
    hostName = "camera7";
    EXPECT_TRUE(platform::HostName(name, sizeof(name)));
    EXPECT_STREQ(name, "camera7");
    hostName = nullptr;
    EXPECT_FALSE(platform::HostName(name, sizeof(name)));
    EXPECT_FALSE(platform::HostName(name, 0));
}

}  // namespace
