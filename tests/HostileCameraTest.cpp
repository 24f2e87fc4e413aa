// Cameras that break off, fall silent or go, in every state: what the device answers, in what time,
// and that it can be closed, opened and started again.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <functional>
#include <thread>

#include "PixelTypes.h"
#include "support/Devices.h"
#include "support/Resources.h"
#include "support/ScriptedPeer.h"

namespace {

using namespace qmx;
using namespace qmx::cam;
using namespace test;

const std::string playing = "Session: s\r\n";

/// What a camera answers in a life of one stream, in order.
const std::array<std::string, 6> life = {
    Ok(0), Description(1, rawBody), Ok(2, setUp), Ok(3, playing), Ok(4), Ok(5)};

bool Start(IDevice& device) {
    return device.SetFormat(640, 480, priv::pixelTypeRaw) &&
           device.StartContinuous(Ignore, nullptr);
}

// The connection ends within an answer, at each of its bytes. The step fails, nothing is left
// running, and the next life works; where the camera may still know the session, it takes a close
// on the new connection to end it.
TEST(HostileCamera, AnAnswerMayBreakOffAtAnyByte) {
    for (std::size_t step = 0; step < life.size(); ++step) {
        const bool sessionStands = step >= 3;
        std::vector<std::string> answers;
        const std::string& whole = life[step];
        for (std::size_t length = 0; length < whole.size(); ++length) {
            answers.insert(answers.end(), life.begin(), life.begin() + static_cast<long>(step));
            answers.push_back(whole.substr(0, length) + closeConnection);
            if (sessionStands) {
                // PAUSE first where the camera may still play.
                answers.insert(answers.end(), {Ok(0), Description(1, rawBody)});
                if (step == 4) answers.push_back(Ok(2));
                answers.push_back(Ok(step == 4 ? 3 : 2));
            }
            answers.insert(answers.end(), life.begin(), life.end());
        }
        CScriptedPeer peer(answers, "127.0.0.1", rtspPort);
        const std::size_t threads = ThreadCount();
        for (std::size_t length = 0; length < whole.size(); ++length) {
            SCOPED_TRACE("step " + std::to_string(step) + " cut at " + std::to_string(length));
            const TSharedPtr<IDevice> device = MakeDevice();
            ASSERT_EQ(device->Open(Camera(), streamsOnly), step >= 2);
            if (step >= 2) {
                ASSERT_EQ(Start(*device), step >= 4);
            }
            ASSERT_EQ(device->StopContinuous(), step >= 4);
            ASSERT_FALSE(device->IsStreaming());
            ASSERT_TRUE(WaitFor([&] { return ThreadCount() == threads; }));
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

bool Set(IDevice& device, const char* property, double value) {
    CVariant variant;
    variant = value;
    return device.properties.set(property, variant);
}

// Each receive from a silent camera takes 5 s, and no call makes more of them than these.
TEST(HostileCamera, SilenceCostsABoundedTime) {
    using Device = TSharedPtr<IDevice>;
    const std::string missing = "RTSP/1.0 404 Not Found\r\n\r\n";
    const std::vector<std::string> streaming(life.begin(), life.begin() + 4);
    const std::vector<std::string> compressed = {Ok(0),   missing,      Description(2, mjlsBody),
                                                 missing, Ok(4, setUp), Ok(5, playing)};
    const auto stop = [](Device& device) { return device->StopContinuous(); };
    struct {
        const char* name;
        std::vector<std::string> answers;  // behind them the camera is silent
        int receives;                      // that the action waits for in vain
        bool succeeds;
        std::function<bool(Device&)> action;  // none: it is in opening or starting
    } const cases[] = {
        {"open, OPTIONS", {}, 1, false, nullptr},
        {"open, DESCRIBE twice", {Ok(0)}, 2, false, nullptr},
        {"start, SETUP", {streaming.begin(), streaming.begin() + 2}, 1, false, nullptr},
        {"start, PLAY", {streaming.begin(), streaming.begin() + 3}, 1, false, nullptr},
        {"stop, PAUSE twice", streaming, 2, true, stop},
        {"stop, TEARDOWN", {life.begin(), life.begin() + 5}, 1, true, stop},
        {"suspend", streaming, 2, true, [](Device& device) { return device->Suspend(); }},
        {"set a format", streaming, 2, true,
         [](Device& device) { return device->SetFormat(320, 240, priv::pixelTypeRaw); }},
        {"pause", streaming, 1, true, [](Device& device) { return Set(*device, "/Paused", 1); }},
        {"set a raw rate", streaming, 1, false,
         [](Device& device) { return Set(*device, "/FrameRate", 5); }},
        {"set a compressed rate", compressed, 5, false,
         [](Device& device) { return Set(*device, "/FrameRate", 5); }},
        {"close", streaming, 3, true,
         [](Device& device) {
             device->Close();
             return !device->IsOpen();
         }},
        {"destroy", streaming, 3, true,
         [](Device& device) {
             device.Reset();
             return !device;
         }},
    };
    std::vector<std::thread> threads;  // all at once, each on an address of its own
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        threads.emplace_back([&row = cases[i], address = "127.0.0." + std::to_string(i + 1)] {
            SCOPED_TRACE(row.name);
            std::vector<std::string> answers = row.answers;
            answers.insert(answers.end(), 9, staySilent);
            CScriptedPeer peer(answers, address.c_str(), rtspPort);
            Device device = MakeDevice();
            const bool isCompressed = answers.size() > 1 && answers[1].starts_with("RTSP/1.0 404");
            const auto start = [&] {
                return device->Open(Camera(address.c_str()), streamsOnly) &&
                       device->SetFormat(
                           640, 480, isCompressed ? priv::pixelTypeJpegLs : priv::pixelTypeRaw) &&
                       device->StartContinuous(Ignore, nullptr);
            };
            auto begun = std::chrono::steady_clock::now();
            bool succeeded = start();
            if (row.action) {
                EXPECT_TRUE(succeeded);
                begun = std::chrono::steady_clock::now();
                succeeded = row.action(device);
            }
            const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun;
            EXPECT_EQ(succeeded, row.succeeds);
            EXPECT_GT(took.count(), 5 * row.receives - 0.1);
            EXPECT_LT(took.count(), 5 * row.receives + 4.9);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
