// Devices under load: stopped at any moment in any way, destroyed in their callback, and many at
// once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <future>
#include <random>
#include <system_error>
#include <thread>

#include "FrameStamp.h"
#include "KORURTSPInterface.h"
#include "PixelTypes.h"
#include "support/Devices.h"
#include "support/Program.h"
#include "support/Resources.h"

namespace {

using namespace qmx;
using namespace qmx::cam;
using namespace test;

/// Counts the frames of a camera, and those that are not as sent.
struct SFrames {
    std::atomic<unsigned> count{0};
    std::atomic<unsigned> damaged{0};
    static void Take(void* context, const std::uint8_t* frame, std::uint32_t length) {
        auto& self = *static_cast<SFrames*>(context);
        if (framestamp::ReadStamp({frame, length}).state != framestamp::EStamp::Good)
            ++self.damaged;
        ++self.count;
    }
};

/// A host and its camera.
struct SHost {
    const char* address;
    SGuid pixelType;
    SFrames frames;
    TSharedPtr<IDevice> device = MakeDevice();

    bool IsPlaying() const {
        CVariant paused;
        return device->IsStreaming() && device->properties.get("/Paused", paused) &&
               !paused.ToBool();
    }
    void Stream() {
        if (IsPlaying()) return;
        // The effect of an earlier call, such as a pause, may last as long as the object.
        if (device->IsStreaming()) device = MakeDevice();
        device->Open(Camera(address), treeAndStreams);
        device->SetFormat(64, 48, pixelType);
        device->StartContinuous(SFrames::Take, &frames);
    }
    /// Makes one of the calls that a host may make.
    void Call(unsigned choice) {
        const std::function<void()> calls[] = {
            [&] { device->Close(); },
            [&] { device = MakeDevice(); },
            [&] { device->Open(Camera(address), treeAndStreams); },
            [&] { device->StartContinuous(SFrames::Take, &frames); },
            [&] { device->StopContinuous(); },
            [&] { device->Suspend(); },
            [&] { device->Resume(); },
            [&] { Set(*device, "/FrameRate", 900.0 + choice % 97); },
            [&] { Set(*device, "/Paused", choice % 3 != 0); },
            [&] { device->SetFormat(choice % 3 == 0 ? 64 : 32, 48, pixelType); },
        };
        calls[choice % std::size(calls)]();
    }
};

/// Makes random calls. None may take long, because the camera responds at once.
void Drive(SHost& host, unsigned seed) {
    std::mt19937 random(seed);
    for (int i = 0; i < 2000; ++i) {
        if (random() % 2 == 0) host.Stream();
        const unsigned before = host.frames.count;
        if (random() % 2 == 0 && host.IsPlaying()) {
            EXPECT_TRUE(WaitFor([&] { return host.frames.count > before; })) << i << " of " << seed;
        }
        const auto begun = std::chrono::steady_clock::now();
        host.Call(static_cast<unsigned>(random()));
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun;
        EXPECT_LT(took.count(), 4.0) << i << " of " << seed;
    }
    host.device.Reset();
}

TEST(Stress, AnyCallAtAnyMomentLeavesNothingBehind) {
    const CSimulator cameras({"127.0.0.11,size=64x48,size=32x48,rate=1000,sr=0.01",
                              "127.0.0.12,streams=mjls,size=64x48,size=32x48,rate=1000,sr=0.01"});
    const CNothingLeft guard;
    testing::internal::CaptureStderr();  // many of the calls fail and log it
    SHost raw{"127.0.0.11", priv::pixelTypeRaw, {}};
    SHost coded{"127.0.0.12", priv::pixelTypeJpegLs, {}};
    constexpr unsigned seed = 20;
    std::thread other(Drive, std::ref(coded), seed);
    Drive(raw, seed + 1);
    other.join();
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(raw.frames.damaged, 0u);  // a coded frame has its stamp inside its coding
    // With this seed about 500 of the calls wait for a frame first.
    EXPECT_GT(raw.frames.count, 200u) << seed;
    EXPECT_GT(coded.frames.count, 200u) << seed;
}

TEST(Stress, ACallbackMayDestroyItsDevice) {
    const CSimulator camera({"127.0.0.11,size=64x48,rate=200"});
    const CNothingLeft guard;
    struct SSelfEnding {
        TSharedPtr<IDevice> device;
        std::promise<void> started;
        std::promise<bool> ended;
    };
    for (int i = 0; i < 100; ++i) {
        SSelfEnding host{MakeDevice(), {}, {}};
        const auto callback = [](void* context, const std::uint8_t*, std::uint32_t) {
            auto& self = *static_cast<SSelfEnding*>(context);
            self.started.get_future().wait();
            bool refused = false;
            try {
                self.device->Close();
            } catch (const std::system_error& error) {
                refused = error.code() == std::errc::resource_deadlock_would_occur &&
                          self.device->IsStreaming() && self.device->IsOpen();
            }
            self.device.Reset();
            self.ended.set_value(refused);
            throw 1;  // an exception must not end the process
        };
        ASSERT_TRUE(host.device->Open(Camera("127.0.0.11"), treeAndStreams));
        host.device->SetFormat(64, 48, priv::pixelTypeRaw);
        ASSERT_TRUE(host.device->StartContinuous(callback, &host));
        auto ended = host.ended.get_future();
        host.started.set_value();
        ASSERT_TRUE(ended.get());
    }
}

TEST(Stress, FiftyCamerasDoNotDisturbEachOther) {
    constexpr int most = 50;
    std::vector<std::string> settings;
    for (int i = 0; i < most; ++i) {
        settings.push_back("127.0.1." + std::to_string(i + 1) + ",size=64x48,rate=30");
    }
    const CSimulator cameras(settings);
    std::deque<SFrames> frames(most);
    std::vector<TSharedPtr<IDevice>> devices;
    devices.reserve(most);
    for (std::size_t i = 0; i < most; ++i) {
        devices.push_back(MakeDevice());
        const std::string address = "127.0.1." + std::to_string(i + 1);
        ASSERT_TRUE(devices[i]->Open(Camera(address.c_str()), treeAndStreams));
        devices[i]->SetFormat(64, 48, priv::pixelTypeRaw);
        ASSERT_TRUE(devices[i]->StartContinuous(SFrames::Take, &frames[i]));
    }
    const auto allHave = [&](unsigned count) {
        return std::ranges::all_of(frames,
                                   [=](const SFrames& each) { return each.count >= count; });
    };
    EXPECT_TRUE(WaitFor([&] { return allHave(20); }));
    for (std::size_t i = 0; i < most; i += 2) EXPECT_TRUE(devices[i]->StopContinuous());
    for (std::size_t i = 1; i < most; i += 2) {
        const unsigned before = frames[i].count;
        EXPECT_TRUE(WaitFor([&] { return frames[i].count > before + 1; })) << i;
    }
    devices.clear();
    for (const SFrames& each : frames) EXPECT_EQ(each.damaged, 0u);
}

/// Checks the guarantees for each frame while the camera sends more than the host accepts.
struct SBlockingHost {
    std::atomic<int> calls{0};
    std::atomic<int> inside{0};
    std::atomic<int> faults{0};
    std::atomic<bool> block{false};
    std::uint32_t lastNumber = 0;
    std::atomic<std::uint32_t> missing{0};

    static void Take(void* context, const std::uint8_t* frame, std::uint32_t length) {
        auto& self = *static_cast<SBlockingHost*>(context);
        if (++self.inside != 1) ++self.faults;
        const auto before = framestamp::ReadStamp({frame, length});
        // Data that arrives meanwhile must not change this frame.
        if (self.block) std::this_thread::sleep_for(std::chrono::milliseconds(500));
        const auto after = framestamp::ReadStamp({frame, length});
        if (after.state != framestamp::EStamp::Good || before.number != after.number) ++self.faults;
        if (self.calls > 0) {
            if (after.number <= self.lastNumber) ++self.faults;
            self.missing += after.number - self.lastNumber - 1;
        }
        self.lastNumber = after.number;
        ++self.calls;
        --self.inside;
    }
};

TEST(Stress, ABlockingHostLosesFramesButGetsNoDamagedOne) {
    const CSimulator camera({"127.0.0.11,size=640x512,rate=60"});
    const auto device = MakeDevice();
    ASSERT_TRUE(device->Open(Camera("127.0.0.11"), treeAndStreams));
    device->SetFormat(640, 512, priv::pixelTypeRaw);
    SBlockingHost host;
    ASSERT_TRUE(device->StartContinuous(SBlockingHost::Take, &host));
    EXPECT_TRUE(WaitFor([&] { return host.calls >= 3; }));
    host.block = true;
    EXPECT_TRUE(WaitFor([&] { return host.missing > 0; }));
    // The stop waits for the current call; no other one follows.
    EXPECT_TRUE(WaitFor([&] { return host.inside == 1; }));
    EXPECT_TRUE(device->StopContinuous());
    EXPECT_EQ(host.inside, 0);
    EXPECT_EQ(host.faults, 0);
}

}  // namespace
