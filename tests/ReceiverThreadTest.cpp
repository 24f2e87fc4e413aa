// What may happen to a receive thread itself: the host ends it from within the callback, and its
// socket stops working.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <string>

#include "RtpReceiver.h"
#include "support/Resources.h"

namespace {

using namespace qmx::cam;

/// A frame of one line of two pixels.
void SendFrame(std::uint16_t port) {
    static const platform::CSocket sender(platform::OpenUdpSocket());
    const char frame[] = "\x80\xE0\0\1\0\0\0\1SSRC\0\0\0\2\0\0\0\0abcd";
    const auto to = platform::MakeSocketAddress(*platform::ParseIpv4("127.0.0.1"), port);
    EXPECT_EQ(platform::SendDatagram(sender.handle(), frame, sizeof(frame) - 1, to), 24);
}

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
    DIR* const folder = ::opendir("/proc/self/task");
    while (const dirent* const entry = ::readdir(folder)) {
        if (entry->d_name[0] != '.') tasks.insert(entry->d_name);
    }
    ::closedir(folder);
    return tasks;
}

/// How often threads have given up the processor of their own accord. One that spins never does.
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

/// The descriptor of the socket that is bound to a port.
int DescriptorOf(std::uint16_t port) {
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
        sockaddr_in local{};
        socklen_t size = sizeof(local);
        if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &size) == 0 &&
            local.sin_family == AF_INET && ntohs(local.sin_port) == port) {
            return descriptor;
        }
    }
    return -1;
}

/// Puts another file under a descriptor that a thread uses, which a sanitizer must not see.
void Replace(int descriptor, int by) {
    ASSERT_EQ(::syscall(SYS_dup3, by, descriptor, O_CLOEXEC), descriptor);
}

TEST(ReceiverThread, SleepsWhileItsSocketKeepsFailing) {
    for (const bool rtp : {true, false}) {
        SCOPED_TRACE(rtp ? "RTP" : "RTCP");
        (void)test::ThreadCount();  // a sanitizer starts a thread of its own before
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
        SendFrame(port);  // ends the receive that is under way; every later one fails
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
