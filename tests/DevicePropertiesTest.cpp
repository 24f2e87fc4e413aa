#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "PixelTypes.h"
#include "support/Devices.h"
#include "support/ScriptedPeer.h"

namespace {

using namespace qmx;
using namespace qmx::cam;
using namespace test;

TEST(DeviceProperties, OfANewDevice) {
    const TSharedPtr<IDevice> device = MakeDevice();
    const std::pair<const char*, EType> expected[] = {{"/FrameRate", EType::Float64},
                                                      {"/Paused", EType::Bool},
                                                      {"/InitialFrameRate", EType::Float64},
                                                      {"/UseInitialFrameRate", EType::Bool}};
    ASSERT_EQ(device->properties.count(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_STREQ(device->properties.nameAt(i).c_str(), expected[i].first);
        EXPECT_EQ(device->properties.typeAt(i), expected[i].second);
    }
    EXPECT_EQ(Get(*device, "/FrameRate"), "failed");  // no node tree connection
    EXPECT_EQ(Get(*device, "/Paused"), "true");
    EXPECT_EQ(Get(*device, "/InitialFrameRate"), "9");
    EXPECT_EQ(Get(*device, "/UseInitialFrameRate"), "false");
    EXPECT_FALSE(Set(*device, "/FrameRate", 5.0));
    EXPECT_TRUE(Set(*device, "/Paused", false));  // no session: PLAY is not sent
    EXPECT_EQ(Get(*device, "/Paused"), "true");
}

// A running raw stream pauses around the write. Session and receiver remain, and after a refused
// write the stream plays on.
TEST(DeviceProperties, RateOfARawCameraLivesInItsNodeTree) {
    CJournal journal;
    CScriptedPeer tree({"OK double 25\n", "OK\n", "ERROR no\n", "OK string x\n", "OK\n"},
                       "127.0.0.1", treePort, "\n");
    const Answers pauseAndPlay = {Ok(), starting.back()};
    CScriptedPeer camera(Joined(Joined(opening, starting), pauseAndPlay, pauseAndPlay, {Ok()}),
                         "127.0.0.1", rtspPort);
    tree.WriteTo(journal);
    camera.WriteTo(journal);
    const TSharedPtr<IDevice> device = MakeDevice();
    ASSERT_TRUE(device->Open(Camera(), treeAndStreams));
    device->SetFormat(640, 480, priv::pixelTypeRaw);
    EXPECT_TRUE(Set(*device, "/UseInitialFrameRate", true));
    ASSERT_TRUE(device->StartContinuous(Ignore, nullptr));
    EXPECT_EQ(Get(*device, "/FrameRate"), "25");
    EXPECT_TRUE(Set(*device, "/FrameRate", 12.5));
    EXPECT_FALSE(Set(*device, "/FrameRate", 1e9));
    EXPECT_EQ(Get(*device, "/Paused"), "false");
    EXPECT_EQ(Get(*device, "/FrameRate"), "failed");  // a value of another type
    EXPECT_TRUE(Set(*device, "/Paused", true));
    EXPECT_EQ(Get(*device, "/Paused"), "true");
    EXPECT_TRUE(Set(*device, "/FrameRate", 5.0));  // remains paused
    EXPECT_TRUE(device->IsStreaming());
    EXPECT_EQ(journal.Methods(),
              "OPTIONS DESCRIBE SETUP PLAY GET PAUSE SET PLAY PAUSE SET PLAY GET PAUSE SET");
    EXPECT_EQ(tree.Requests()[1], "SET .rtp.frequency double 12.5\n");

    CScriptedPeer compressed(openingMjls, "127.0.0.2", rtspPort);
    device->Close();
    ASSERT_TRUE(device->Open(Camera("127.0.0.2"), streamsOnly));
    EXPECT_TRUE(Set(*device, "/InitialFrameRate", 4.0));
    EXPECT_EQ(Get(*device, "/FrameRate"), "4") << "no rate of the raw camera was kept";
}

// The rate is part of the SETUP path: a new rate needs a new session on a new connection, with the
// same callback.
TEST(DeviceProperties, RateOfACompressedCameraMeansANewSession) {
    const Answers begun = Joined(openingMjls, starting, stopping);
    CScriptedPeer camera(Joined(begun, {Ok()}, starting, Joined(stopping, {closeConnection})),
                         "127.0.0.1", rtspPort);
    const TSharedPtr<IDevice> device = MakeDevice();
    ASSERT_TRUE(device->Open(Camera(), streamsOnly));
    device->SetFormat(8, 6, priv::pixelTypeJpegLs);
    int context = 0;
    ASSERT_TRUE(device->StartContinuous(Ignore, &context));
    EXPECT_EQ(Get(*device, "/FrameRate"), "9");  // shown, but not requested
    EXPECT_TRUE(Set(*device, "/FrameRate", 7.4));
    EXPECT_TRUE(Set(*device, "/FrameRate", 7.4));
    EXPECT_EQ(Get(*device, "/FrameRate"), "7.4");
    FrameCallback callback = nullptr;
    void* given = nullptr;
    device->GetFrameCallback(callback, given);
    EXPECT_TRUE(callback == Ignore && given == &context && device->IsStreaming());
    EXPECT_TRUE(Set(*device, "/UseInitialFrameRate", true));
    EXPECT_TRUE(Set(*device, "/InitialFrameRate", 3.0));
    EXPECT_EQ(Get(*device, "/FrameRate"), "7.4") << "a rate is never lost";
    EXPECT_FALSE(Set(*device, "/FrameRate", 5.0)) << "the camera is gone";
    EXPECT_FALSE(device->IsStreaming() || device->IsSuspended());
    EXPECT_EQ(Get(*device, "/FrameRate"), "5");
    EXPECT_EQ(camera.Methods(),
              "OPTIONS DESCRIBE DESCRIBE DESCRIBE SETUP PLAY PAUSE TEARDOWN "
              "OPTIONS SETUP PLAY PAUSE TEARDOWN OPTIONS");
    EXPECT_EQ(UrlPath(camera, 4), "/mjls/stream=0");
    EXPECT_EQ(UrlPath(camera, 9), "/mjls/stream=0?frate=7");
    EXPECT_EQ(UrlPath(camera, 12), "/mjls");
}

// The first start adopts it, even if that start fails.
TEST(DeviceProperties, TheInitialRateBecomesTheRate) {
    CScriptedPeer camera(Joined({Ok(), Refusal(), Description(mjlsBody), Description(jpegBody)},
                                {Refusal()}, starting, {Refusal(), Ok()}),
                         "127.0.0.1", rtspPort);
    const TSharedPtr<IDevice> device = MakeDevice();
    ASSERT_TRUE(device->Open(Camera(), streamsOnly));
    device->SetFormat(8, 6, priv::pixelTypeJpeg);
    Set(*device, "/InitialFrameRate", 7.5);
    Set(*device, "/UseInitialFrameRate", true);
    EXPECT_EQ(Get(*device, "/FrameRate"), "7.5");
    EXPECT_FALSE(device->StartContinuous(Ignore, nullptr));
    Set(*device, "/InitialFrameRate", 30.0);
    EXPECT_EQ(Get(*device, "/FrameRate"), "7.5");
    ASSERT_TRUE(device->StartContinuous(Ignore, nullptr));
    EXPECT_EQ(UrlPath(camera, 5), "/mjpg/stream=0?frate=8");
    EXPECT_TRUE(Set(*device, "/Paused", true));
    EXPECT_EQ(Get(*device, "/Paused"), "false") << "the camera refused";
    EXPECT_TRUE(Set(*device, "/Paused", true));
    EXPECT_TRUE(Set(*device, "/FrameRate", 20.0)) << "counts at the next start";
    EXPECT_EQ(camera.Methods(), "OPTIONS DESCRIBE DESCRIBE DESCRIBE SETUP SETUP PLAY PAUSE PAUSE");
}

}  // namespace
