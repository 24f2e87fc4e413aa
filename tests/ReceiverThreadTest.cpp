// Failures of the receive threads themselves: the host ends one in the callback, and their sockets
// stop working.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "RtpReceiver.h"
#include "support/Resources.h"
#include "support/RtpPeers.h"

namespace {

using namespace qmx::cam;

void SendFrame(std::uint16_t port) { test::CUdpPeer().SendFrame(port, 1, "abcd"); }

void Count(void* frames, const std::uint8_t*, std::uint32_t) {
    ++*static_cast<std::atomic<unsigned>*>(frames);
}

// Discarding the unwinding by which the C library ends a thread would abort the process.
TEST(ReceiverThread, TheCallbackMayEndItsThread) {
    const std::pair<const char*, FrameCallback> endings[] = {
        {"exit", [](void*, const std::uint8_t*, std::uint32_t) { pthread_exit(nullptr); }},
        {"cancel",
         [](void*, const std::uint8_t*, std::uint32_t) {
             pthread_cancel(pthread_self());
             pthread_testcancel();
         }},
    };
    for (const auto& [name, ending] : endings) {
        SCOPED_TRACE(name);
        CRtpReceiver receiver;
        ASSERT_TRUE(receiver.CreateSockets() && receiver.Start("ZRAW", ending, nullptr));
        const std::size_t running = test::ThreadCount();
        SendFrame(receiver.GetRtpPort());
        EXPECT_TRUE(test::WaitFor([&] { return test::ThreadCount() == running - 1; }));
        EXPECT_TRUE(receiver.Stop());
        std::atomic<unsigned> frames{0};
        ASSERT_TRUE(receiver.CreateSockets() && receiver.Start("ZRAW", Count, &frames));
        SendFrame(receiver.GetRtpPort());
        EXPECT_TRUE(test::WaitFor([&] { return frames == 1; }));
    }
}

std::set<std::string> Tasks() {
    std::set<std::string> tasks;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        tasks.insert(task.path().filename());
    }
    return tasks;
}

/// Returns how often threads have voluntarily yielded the processor. A spinning one never does.
std::uint64_t Sleeps(const std::set<std::string>& tasks) {
    std::uint64_t sleeps = 0;
    for (const std::string& task : tasks) {
        std::ifstream status("/proc/self/task/" + task + "/status");
        for (std::string word; status >> word;) {
            std::uint64_t count = 0;
            if (word == "voluntary_ctxt_switches:" && status >> count) sleeps += count;
        }
    }
    return sleeps;
}

/// Returns the descriptor of the socket that is bound to a port.
int DescriptorOf(std::uint16_t port) {
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
        if (platform::LocalPort(static_cast<platform::SocketHandle>(descriptor)) == port) {
            return descriptor;
        }
    }
    return -1;
}

/// Replaces the file of a descriptor that a thread uses. A sanitizer must not notice.
void Replace(int descriptor, int by) {
    ASSERT_EQ(::syscall(SYS_dup3, by, descriptor, O_CLOEXEC), descriptor);
}

TEST(ReceiverThread, SleepsWhileItsSocketKeepsFailing) {
    for (const bool rtp : {true, false}) {
        SCOPED_TRACE(rtp ? "RTP" : "RTCP");
        (void)test::ThreadCount();  // starts the thread of a sanitizer, if any
        const std::set<std::string> before = Tasks();
        CRtpReceiver receiver;
        std::atomic<unsigned> frames{0};
        ASSERT_TRUE(receiver.CreateSockets() && receiver.Start("ZRAW", Count, &frames));
        std::set<std::string> threads = Tasks();
        for (const std::string& task : before) threads.erase(task);
        ASSERT_EQ(threads.size(), 3u);

        const std::uint16_t port = rtp ? receiver.GetRtpPort() : receiver.GetRtcpPort();
        const int descriptor = DescriptorOf(port);
        const int original = ::dup(descriptor);
        const int noSocket = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        Replace(descriptor, noSocket);
        SendFrame(port);  // ends the current receive; every later one fails
        const std::uint64_t sleeps = Sleeps(threads);
        EXPECT_TRUE(test::WaitFor([&] { return Sleeps(threads) > sleeps + 50; }));

        Replace(descriptor, original);
        const unsigned received = frames;
        EXPECT_TRUE(test::WaitFor([&] {
            SendFrame(receiver.GetRtpPort());
            return frames > received;
        })) << "it receives again";
        EXPECT_TRUE(receiver.Stop());
        ::close(original);
        ::close(noSocket);
    }
}

}  // namespace
