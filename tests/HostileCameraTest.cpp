// Cameras that disconnect or fall silent, in every state: the result of each call, its time, and
// that the device can be closed, opened and started again.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "PixelTypes.h"
#include "support/Devices.h"
#include "support/Resources.h"
#include "support/ScriptedPeer.h"
#include "support/Sockets.h"

namespace {

using namespace qmx;
using namespace qmx::cam;
using namespace test;

const std::string playing = "Session: s\r\n";

/// The responses of a camera during one stream, from opening to stop.
const Answers life = Joined(opening, starting, stopping);

bool Start(IDevice& device) {
    return device.SetFormat(640, 480, priv::pixelTypeRaw) &&
           device.StartContinuous(Ignore, nullptr);
}

// The connection ends after each byte of each response. The step fails, nothing is left running,
// and the next stream works; where the camera may still know the session, a close on the new
// connection has to end it first.
TEST(HostileCamera, AnAnswerMayBreakOffAtAnyByte) {
    for (std::size_t step = 0; step < life.size(); ++step) {
        const bool sessionStands = step >= 3;
        std::vector<std::string> answers;
        const std::string& whole = life[step];
        for (std::size_t length = 0; length < whole.size(); ++length) {
            answers.insert(answers.end(), life.begin(), life.begin() + static_cast<long>(step));
            answers.push_back(whole.substr(0, length) + closeConnection);
            if (sessionStands) {
                // PAUSE comes first if the camera may still play.
                answers = Joined(answers, opening, step == 4 ? stopping : Answers{Ok()});
            }
            answers = Joined(answers, life);
        }
        CScriptedPeer peer(answers, "127.0.0.1", rtspPort);
        for (std::size_t length = 0; length < whole.size(); ++length) {
            SCOPED_TRACE("step " + std::to_string(step) + " cut at " + std::to_string(length));
            const TSharedPtr<IDevice> device = MakeDevice();
            ASSERT_EQ(device->Open(Camera(), streamsOnly), step >= 2);
            if (step >= 2) {
                ASSERT_EQ(Start(*device), step >= 4);
            }
            ASSERT_EQ(device->StopContinuous(), step >= 4);
            ASSERT_FALSE(device->IsStreaming());
            ASSERT_TRUE(WaitFor([&] { return ThreadCount() == ThreadsWithoutPeers() + 1; }));
            device->Close();
            if (sessionStands) {
                ASSERT_TRUE(device->Open(Camera(), streamsOnly));
                ASSERT_FALSE(Start(*device));
                device->Close();
            }
            ASSERT_TRUE(device->Open(Camera(), streamsOnly));
            ASSERT_TRUE(Start(*device));
            ASSERT_TRUE(device->StopContinuous());
        }
    }
}

using Device = TSharedPtr<IDevice>;

const std::string refused = "RTSP/1.0 500 No\r\n\r\n";

/// The state before the timed call. The camera responds at once until then.
enum class EBefore { Nothing, Opened, Started, Paused, Suspended, Closed, ClosedWhilePaused };

/// Brings a device into a state.
void Prepare(Device& device, EBefore state, const std::function<bool()>& open,
             const std::function<bool()>& start) {
    if (state == EBefore::Nothing) return;
    ASSERT_TRUE(open());
    if (state == EBefore::Opened) return;
    ASSERT_TRUE(start());
    if (state == EBefore::Paused || state == EBefore::ClosedWhilePaused) Set(*device, "/Paused", 1);
    if (state == EBefore::Suspended) device->Suspend();
    if (state == EBefore::Closed || state == EBefore::ClosedWhilePaused) device->Close();
    if (state == EBefore::ClosedWhilePaused) {
        ASSERT_TRUE(open());
    }
}

// Each receive from a silent camera takes 5 s, and no call in any state makes more of them than
// listed. After a close, the camera has refused to end its session.
TEST(HostileCamera, SilenceCostsABoundedTime) {
    const std::string missing = "RTSP/1.0 404 Not Found\r\n\r\n";
    const Answers opened(life.begin(), life.begin() + 2);
    const Answers started(life.begin(), life.begin() + 4);
    const Answers compressed = {Ok(0),   missing,      Description(2, mjlsBody),
                                missing, Ok(4, setUp), Ok(5, playing)};
    const Answers paused = Joined(started, {Ok(4)});
    const Answers suspended = Joined(paused, {Ok(5)});
    const Answers stillPlaying = Joined(started, {refused, refused, refused});
    const Answers stillSetUp = Joined(paused, {refused, refused});
    const Answers leftOver = Joined(suspended, opened);
    const auto start = [](Device& device) { return device->StartContinuous(Ignore, nullptr); };
    const auto stop = [](Device& device) { return device->StopContinuous(); };
    const auto close = [](Device& device) {
        device->Close();
        return !device->IsOpen();
    };
    const auto destroy = [](Device& device) {
        device.Reset();
        return !device;
    };
    const auto setRate = [](Device& device) { return Set(*device, "/FrameRate", 5); };
    struct {
        const char* name;
        EBefore before;
        Answers answers;  // afterwards the camera is silent
        int receives;     // that time out during the action
        bool succeeds;
        std::function<bool(Device&)> action;  // null: `Open`
    } const cases[] = {
        {"open, OPTIONS", EBefore::Nothing, {}, 1, false, nullptr},
        {"open, DESCRIBE twice", EBefore::Nothing, {Ok(0)}, 2, false, nullptr},
        {"open, OPTIONS, still playing", EBefore::Closed, stillPlaying, 2, false, nullptr},
        {"open, OPTIONS, still set up", EBefore::Closed, stillSetUp, 2, false, nullptr},
        {"open, DESCRIBE, still playing", EBefore::Closed, Joined(stillPlaying, {Ok(0)}), 5, false,
         nullptr},
        {"open, DESCRIBE, still set up", EBefore::Closed, Joined(stillSetUp, {Ok(0)}), 3, false,
         nullptr},
        {"start, SETUP", EBefore::Opened, opened, 1, false, start},
        {"start, PLAY", EBefore::Opened, Joined(opened, {Ok(2, setUp)}), 1, false, start},
        {"start, a receiver left over", EBefore::ClosedWhilePaused,
         Joined(leftOver, {Ok(2, setUp)}), 1, false, start},
        {"stop, PAUSE twice", EBefore::Started, started, 2, true, stop},
        {"stop, TEARDOWN", EBefore::Started, paused, 1, true, stop},
        {"stop again", EBefore::Started, Joined(started, {refused, refused}), 2, true,
         [](Device& device) { return device->StopContinuous() && device->StopContinuous(); }},
        {"suspend", EBefore::Started, started, 2, true,
         [](Device& device) { return device->Suspend(); }},
        {"resume", EBefore::Suspended, suspended, 1, false,
         [](Device& device) { return device->Resume(); }},
        {"set a format", EBefore::Started, started, 2, true,
         [](Device& device) { return device->SetFormat(320, 240, priv::pixelTypeRaw); }},
        {"pause", EBefore::Started, started, 1, true,
         [](Device& device) { return Set(*device, "/Paused", 1); }},
        {"resume after a pause", EBefore::Paused, paused, 1, true,
         [](Device& device) { return Set(*device, "/Paused", 0); }},
        {"set a raw rate", EBefore::Started, started, 1, false, setRate},
        {"set a compressed rate", EBefore::Started, compressed, 5, false, setRate},
        {"close", EBefore::Started, started, 3, true, close},
        {"close while paused", EBefore::Paused, paused, 1, true, close},
        {"destroy", EBefore::Started, started, 3, true, destroy},
        {"destroy while paused", EBefore::Paused, paused, 1, true, destroy},
        {"destroy, still playing", EBefore::Closed, stillPlaying, 0, true, destroy},
    };
    std::vector<std::thread> threads;  // at the same time, each with its own address
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        threads.emplace_back([&row = cases[i], address = "127.0.0." + std::to_string(i + 1)] {
            SCOPED_TRACE(row.name);
            CScriptedPeer peer(Joined(row.answers, Answers(9, staySilent)), address.c_str(),
                               rtspPort);
            Device device = MakeDevice();
            const bool isCompressed =
                row.answers.size() > 1 && row.answers[1].starts_with("RTSP/1.0 404");
            device->SetFormat(640, 480, isCompressed ? priv::pixelTypeJpegLs : priv::pixelTypeRaw);
            const auto opening = [&] { return device->Open(Camera(address.c_str()), streamsOnly); };
            Prepare(device, row.before, opening,
                    [&] { return device->StartContinuous(Ignore, nullptr); });
            const auto begun = std::chrono::steady_clock::now();
            EXPECT_EQ(row.action ? row.action(device) : opening(), row.succeeds);
            const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun;
            EXPECT_GT(took.count(), 5 * row.receives - 0.1);
            EXPECT_LT(took.count(), 5 * row.receives + 4.9);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

// The node tree has a limit of 2 s for a connection and for each exchange.
TEST(HostileCamera, ASilentNodeTreeCostsABoundedTime) {
    const auto expect = [](const char* what, double least, const std::function<bool()>& action) {
        const auto begun = std::chrono::steady_clock::now();
        EXPECT_FALSE(action()) << what;
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun;
        EXPECT_GT(took.count(), least - 0.1) << what;
        EXPECT_LT(took.count(), least + 1.9) << what;
    };
    const Device device = MakeDevice();
    CVariant rate;
    const auto getRate = [&] { return device->properties.get("/FrameRate", rate); };
    const CScriptedPeer silent({staySilent}, "127.0.0.1", treePort, "\n");
    ASSERT_TRUE(device->Open(Camera(), 1));
    expect("a read", 2, getRate);
    expect("the next one, without a connection", 0, getRate);
    device->Close();

    // A listener whose queue is full accepts no connection and refuses none.
    const platform::CSocket full = Listen("127.0.0.2", treePort);
    const auto to = platform::MakeSocketAddress(*platform::ParseIpv4("127.0.0.2"), treePort);
    std::vector<platform::CSocket> waiting;
    do {
        waiting.emplace_back(platform::OpenTcpSocket());
    } while (platform::ConnectWithTimeout(waiting.back().handle(), to, 200));
    expect("a connection", 2, [&] { return device->Open(Camera("127.0.0.2"), 1); });
}

}  // namespace
