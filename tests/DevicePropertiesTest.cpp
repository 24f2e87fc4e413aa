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
    EXPECT_TRUE(
        Set(*device, "/Paused", false));  // no session: PLAY is refused, and nothing is said
    EXPECT_EQ(Get(*device, "/Paused"), "true");
}

// A running raw stream pauses around the write; session and receiver stay, and a refused write
// leaves the stream playing.
TEST(DeviceProperties, RateOfARawCameraLivesInItsNodeTree) {
    CJournal journal;
    CScriptedPeer tree({"OK double 25\n", "OK\n", "ERROR no\n", "OK string x\n", "OK\n"},
                       "127.0.0.1", treePort, "\n");
    const std::string play = "Session: s\r\n";
    CScriptedPeer camera({Ok(0), Description(1, rawBody), Ok(2, setUp), Ok(3, play), Ok(4),
                          Ok(5, play), Ok(6), Ok(7, play), Ok(8)},
                         "127.0.0.1", rtspPort);
    tree.WriteTo(journal);
    camera.WriteTo(journal);
    const TSharedPtr<IDevice> device = MakeDevice();
    ASSERT_TRUE(device->Open(Camera(), treeAndStreams));
    device->SetFormat(640, 480, priv::pixelTypeRaw);
    ASSERT_TRUE(device->StartContinuous(Ignore, nullptr));
    EXPECT_EQ(Get(*device, "/FrameRate"), "25");
    EXPECT_TRUE(Set(*device, "/FrameRate", 12.5));
    EXPECT_FALSE(Set(*device, "/FrameRate", 1e9));
    EXPECT_EQ(Get(*device, "/Paused"), "false");
    EXPECT_EQ(Get(*device, "/FrameRate"), "failed");  // of another type
    EXPECT_TRUE(Set(*device, "/Paused", true));
    EXPECT_EQ(Get(*device, "/Paused"), "true");
    EXPECT_TRUE(Set(*device, "/FrameRate", 5.0));  // stays paused
    EXPECT_TRUE(device->IsStreaming());
    EXPECT_EQ(journal.Methods(),
              "OPTIONS DESCRIBE SETUP PLAY GET PAUSE SET PLAY PAUSE SET PLAY GET PAUSE SET");
    EXPECT_EQ(tree.Requests()[1], "SET .rtp.frequency double 12.5\n");
}

const std::string missing = "RTSP/1.0 404 Not Found\r\nCSeq: 1\r\n\r\n";
const std::string noJpeg = "RTSP/1.0 404 Not Found\r\nCSeq: 3\r\n\r\n";

// The rate is part of the setup path: a new one means a new session on a new connection, with the
// same callback.
TEST(DeviceProperties, RateOfACompressedCameraMeansANewSession) {
    const std::string play = "Session: s\r\n";
    CScriptedPeer camera({Ok(0), missing, Description(2, mjlsBody), noJpeg,
                          // no rate, then 7.4, then none because it is the same
                          Ok(4, setUp), Ok(5, play), Ok(6), Ok(7),  //
                          Ok(0), Ok(1, setUp), Ok(2, play), Ok(3), Ok(4)},
                         "127.0.0.1", rtspPort);
    const TSharedPtr<IDevice> device = MakeDevice();
    ASSERT_TRUE(device->Open(Camera(), streamsOnly));
    device->SetFormat(8, 6, priv::pixelTypeJpegLs);
    int context = 0;
    ASSERT_TRUE(device->StartContinuous(Ignore, &context));
    EXPECT_EQ(Get(*device, "/FrameRate"), "9");  // shown, not asked for
    EXPECT_TRUE(Set(*device, "/FrameRate", 7.4));
    EXPECT_TRUE(Set(*device, "/FrameRate", 7.4));
    EXPECT_EQ(Get(*device, "/FrameRate"), "7.4");
    FrameCallback callback = nullptr;
    void* given = nullptr;
    device->GetFrameCallback(callback, given);
    EXPECT_TRUE(callback == Ignore && given == &context && device->IsStreaming());
    EXPECT_TRUE(Set(*device, "/UseInitialFrameRate", true));
    EXPECT_TRUE(Set(*device, "/InitialFrameRate", 3.0));
    EXPECT_TRUE(device->StopContinuous());
    EXPECT_EQ(camera.Methods(),
              "OPTIONS DESCRIBE DESCRIBE DESCRIBE SETUP PLAY PAUSE TEARDOWN "
              "OPTIONS SETUP PLAY PAUSE TEARDOWN");
    EXPECT_EQ(UrlPath(camera, 4), "/mjls/stream=0");
    EXPECT_EQ(UrlPath(camera, 9), "/mjls/stream=0?frate=7");
    EXPECT_EQ(UrlPath(camera, 12), "/mjls");
    EXPECT_EQ(Get(*device, "/FrameRate"), "7.4") << "a rate is never lost";
}

TEST(DeviceProperties, TheInitialRateBecomesTheRate) {
    const std::string play = "Session: s\r\n";
    CScriptedPeer camera(
        {Ok(0), missing, Description(2, mjlsBody), noJpeg, Ok(4, setUp), Ok(5, play), Ok(6), Ok(7)},
        "127.0.0.1", rtspPort);
    const TSharedPtr<IDevice> device = MakeDevice();
    ASSERT_TRUE(device->Open(Camera(), streamsOnly));
    device->SetFormat(8, 6, priv::pixelTypeJpegLs);
    Set(*device, "/InitialFrameRate", 7.5);
    Set(*device, "/UseInitialFrameRate", true);
    EXPECT_EQ(Get(*device, "/FrameRate"), "7.5");
    ASSERT_TRUE(device->StartContinuous(Ignore, nullptr));
    Set(*device, "/InitialFrameRate", 30.0);
    EXPECT_EQ(Get(*device, "/FrameRate"), "7.5");
    EXPECT_TRUE(device->StopContinuous());
    EXPECT_EQ(UrlPath(camera, 4), "/mjls/stream=0?frate=8");
    Set(*device, "/FrameRate", 20.0);  // counts at the next start
    EXPECT_EQ(camera.Methods(), "OPTIONS DESCRIBE DESCRIBE DESCRIBE SETUP PLAY PAUSE TEARDOWN");
}

}  // namespace
