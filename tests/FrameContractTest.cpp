// What the host may rely on for each frame, with a camera that sends more than it can take.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "FrameStamp.h"
#include "PixelTypes.h"
#include "support/Devices.h"
#include "support/Program.h"
#include "support/Resources.h"

namespace {

using namespace test;

struct SContract {
    std::atomic<int> calls{0};
    std::atomic<int> inside{0};
    std::atomic<bool> stopped{false};
    std::atomic<bool> block{false};
    std::atomic<int> faults{0};
    std::atomic<std::uint32_t> lastNumber{0};
    std::atomic<std::uint32_t> missing{0};

    static void Callback(void* context, const std::uint8_t* frame, std::uint32_t length) {
        auto& self = *static_cast<SContract*>(context);
        if (++self.inside != 1 || self.stopped) ++self.faults;
        const korusim::SStamp before = korusim::ReadStamp({frame, length});
        // What arrives meanwhile is lost or waits; it must not touch this frame.
        if (self.block) std::this_thread::sleep_for(std::chrono::milliseconds(500));
        const korusim::SStamp after = korusim::ReadStamp({frame, length});
        const bool good = before.state == korusim::EStamp::Good &&
                          after.state == korusim::EStamp::Good && before.number == after.number;
        if (!good || (self.calls > 0 && before.number <= self.lastNumber)) ++self.faults;
        if (self.calls > 0) self.missing += before.number - self.lastNumber - 1;
        self.lastNumber = before.number;
        ++self.calls;
        --self.inside;
    }
};

TEST(FrameContract, ABlockingHostLosesFramesAndGetsNoDamagedOne) {
    const CSimulator camera({"127.0.0.11,size=640x512,rate=60"});
    const auto device = MakeDevice();
    ASSERT_TRUE(device->Open(Camera("127.0.0.11"), treeAndStreams));
    device->SetFormat(640, 512, qmx::cam::priv::pixelTypeRaw);
    SContract contract;
    for (int run = 0; run < 3; ++run) {
        contract.stopped = false;
        contract.calls = 0;
        ASSERT_TRUE(device->StartContinuous(SContract::Callback, &contract));
        EXPECT_TRUE(WaitFor([&] { return contract.calls >= 3; }));
        contract.block = true;
        const int before = contract.calls;
        EXPECT_TRUE(WaitFor([&] { return contract.calls >= before + 3; }));
        // The stop waits for the call that is under way, and is the last word.
        EXPECT_TRUE(WaitFor([&] { return contract.inside == 1; }));
        EXPECT_TRUE(device->StopContinuous());
        contract.stopped = true;
        EXPECT_EQ(contract.inside, 0);
        contract.block = false;
    }
    EXPECT_EQ(contract.faults, 0);
    EXPECT_GT(contract.missing, 0u);
}

}  // namespace
