// RTCP over whole runs of a receiver. A scripted camera sends packets and sender reports and
// compares each answer byte by byte. The last SR field shows which sender report an answer belongs
// to.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "RtpReceiver.h"
#include "support/Resources.h"
#include "support/RtpPeers.h"

namespace {

using namespace qmx::cam;
using namespace std::string_literals;
using test::Big;
using Clock = std::chrono::steady_clock;

/// Returns a sender report. The middle of its NTP time is "MID" and its number.
std::string SenderReport(char number, char version = '\x80') {
    return version + "\xC8\0\x06"s + "CAM1ab" + "MID" + number + "yz" + std::string(12, '\0');
}
/// Returns an application-defined packet that fills a datagram.
std::string Filler(std::size_t size) {
    return "\x80\xCC"s + Big(size / 4 - 1, 2) + std::string(size - 4, 'x');
}
const std::string description = "\x81\xCA\0\x02"s + "CAM1" + "\0\0\0\0"s;

/// Returns a report block without its last field, the delay since the last SR.
std::string Block(const std::string& source, unsigned fraction, unsigned lost, unsigned highest,
                  const std::string& lastSenderReport) {
    return source + Big(fraction, 1) + Big(lost, 3) + Big(highest, 4) + Big(0, 4) +
           lastSenderReport;
}

class RtcpRun : public testing::Test {
   protected:
    static constexpr std::size_t delayAt = 28;

    void Start() {
        ASSERT_TRUE(receiver.CreateSockets());
        ASSERT_TRUE(receiver.Start("ZRAW", test::CFrames::Callback, &frames));
    }
    /// Starts a run and checks its opening packet.
    void Begin() {
        Start();
        const std::string opening = camera.Next();
        own = opening.substr(4, 4);
        EXPECT_EQ(opening, "\x80\xC9\0\x01"s + own + Description());
    }
    std::string Description() const {
        char host[256] = "";
        EXPECT_TRUE(platform::HostName(host, sizeof(host)));
        const std::string name = host;
        const std::size_t size = (name.size() + 14) / 4 * 4;
        return "\x81\xCA"s + Big(size / 4 - 1, 2) + own + '\1' + Big(name.size(), 1) + name +
               std::string(size - 10 - name.size(), '\0');
    }
    std::string Report(const std::string& block) const {
        return "\x81\xC9\0\x07"s + own + block + Big(0, 4) + Description();
    }
    /// Sends packets that are a frame each. All are counted once their frames have arrived.
    void SendPackets(std::initializer_list<unsigned> sequences) {
        for (const unsigned sequence : sequences) {
            camera.SendFrame(receiver.GetRtpPort(), sequence, "abcd");
        }
        sent += sequences.size();
        ASSERT_TRUE(frames.WaitFor(sent));
    }
    void SendRtcp(const std::string& datagram) const {
        camera.Send(receiver.GetRtcpPort(), datagram);
    }
    /// Ends the run, checks its last report and returns the delay in it, in seconds.
    double End(const std::string& block) {
        EXPECT_TRUE(receiver.Stop());
        std::string last = camera.Next();
        last.resize(std::max(last.size(), delayAt + 4));
        std::uint32_t delay = 0;
        for (char& byte : std::span(last).subspan(delayAt, 4)) {
            delay = delay << 8 | static_cast<std::uint8_t>(std::exchange(byte, '\0'));
        }
        EXPECT_EQ(last, Report(block) + "\x81\xCB\0\x01"s + own);
        EXPECT_EQ(camera.Next(0), "") << "nothing after the goodbye";
        return delay / 65536.0;
    }

    test::CUdpPeer camera;
    test::CFrames frames;
    std::size_t sent = 0;
    CRtpReceiver receiver;
    std::string own;  // SSRC of the receiver in this run
};

double SecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}
void LetTimePass() {
    for (const auto begin = Clock::now(); SecondsSince(begin) < 0.02;) std::this_thread::yield();
}

// The camera judges the connection by these reports. Nothing of a run may reach the next one except
// the camera's address, which a stop keeps and a reset clears.
TEST_F(RtcpRun, AnswersEachFourthSenderReport) {
    ASSERT_TRUE(receiver.SetServerAddress("127.0.0.1", camera.port()));
    Begin();
    const std::string first = own;
    SendPackets({65529, 65530, 65531, 65534, 2});  // 65531 is the first that counts
    SendRtcp(SenderReport('1'));
    for (const char version : {'\0', '\x40', '\xC0'}) SendRtcp(SenderReport('v', version));
    SendRtcp(SenderReport('l') + Filler(572));  // 600 bytes
    SendRtcp("\x80\xC8\0\0"s);
    SendRtcp(SenderReport('2') + description);
    SendRtcp(SenderReport('3') + SenderReport('4'));
    EXPECT_EQ(camera.Next(), Report(Block("SS\xFF\xF9", 0, 5, 0x10002, "MID4")));
    SendPackets({3, 6});
    SendRtcp(description + SenderReport('5'));
    SendRtcp(SenderReport('6') + Filler(484));  // 512 bytes
    SendRtcp(SenderReport('7'));
    LetTimePass();
    const auto beforeLast = Clock::now();
    SendRtcp(SenderReport('8'));
    // The fraction covers the time since the previous sender report, which is not the last answer.
    EXPECT_EQ(camera.Next(), Report(Block("SS\xFF\xF9", 0, 7, 0x10006, "MID8")));
    const auto answered = Clock::now();
    SendPackets({7, 8, 10});
    LetTimePass();
    const double least = SecondsSince(answered);
    const double delay = End(Block("SS\xFF\xF9", 64, 8, 0x1000A, "MID8"));
    EXPECT_GE(delay, least - 0.001);
    EXPECT_LE(delay, SecondsSince(beforeLast) + 0.001);

    // A run without packets. Some senders begin with an empty datagram, which ends the reception on
    // its port for the run and does no more harm.
    Begin();
    EXPECT_NE(own, first);
    const std::size_t running = test::ThreadCount();
    for (const char number : {'1', '2', '3'}) SendRtcp(SenderReport(number));
    SendRtcp("");
    camera.Send(receiver.GetRtpPort(), "");
    ASSERT_TRUE(test::WaitFor([&] { return test::ThreadCount() == running - 2; }));
    SendRtcp(SenderReport('4'));
    camera.SendFrame(receiver.GetRtpPort(), 1, "abcd");
    EXPECT_GT(End(Block("\0\0\0\0"s, 0, 1, 0, "MID3")), 0);

    // A run without sender reports.
    Begin();
    SendPackets({100, 101, 102});
    EXPECT_EQ(End(Block("SS\0d"s, 0, 0, 102, "\0\0\0\0"s)), 0);

    receiver.Reset();
    Start();
    SendPackets({1});
    EXPECT_TRUE(receiver.Stop());
    EXPECT_EQ(camera.Next(0), "") << "a reset forgets the camera";
}

// A camera may still send reports while the run ends. Those that arrive too late for the last
// report must not count in the next run.
TEST_F(RtcpRun, LateSenderReportsDoNotReachTheNextRun) {
    ASSERT_TRUE(receiver.SetServerAddress("127.0.0.1", camera.port()));
    for (int round = 0; round < 20; ++round) {
        Begin();
        std::atomic<bool> stopped{false};
        std::thread late([&, port = receiver.GetRtcpPort()] {
            const test::CUdpPeer other;
            while (!stopped) other.Send(port, SenderReport('x'));
        });
        EXPECT_NE(camera.Next(), "") << "an answer";
        receiver.Stop();
        stopped = true;
        late.join();
        while (!camera.Next(0).empty()) {
        }
        Begin();
        EXPECT_EQ(End(Block("\0\0\0\0"s, 0, 1, 0, "\0\0\0\0"s)), 0);
    }
}

TEST(RtcpEventQueue, GivesEventsInOrderUntilAStop) {
    // The posted and the received events. A digit is a sender report, S a stop, C clears the queue.
    const std::pair<std::string, std::string> cases[] = {
        {"123", "123"}, {"12S", "12S"}, {"1S2S", "1S"}, {"12SC3", "3"}, {"SC1S", "1S"}};
    for (const auto& [posted, events] : cases) {
        SCOPED_TRACE(posted);
        CRtcpEventQueue queue;
        for (const char event : posted) {
            if (event == 'C') {
                queue.Clear();
            } else {
                queue.Post(event == 'S' ? ERtcpEvent::Stop : ERtcpEvent::SenderReport, event + 0.5,
                           static_cast<std::uint32_t>(event));
            }
        }
        for (const char expected : events) {
            const SRtcpEvent event = queue.Wait();
            EXPECT_EQ(event.kind == ERtcpEvent::Stop, expected == 'S');
            EXPECT_EQ(event.time, expected + 0.5);
            EXPECT_EQ(event.lastSenderReport, static_cast<std::uint32_t>(expected));
        }
    }
}

}  // namespace
