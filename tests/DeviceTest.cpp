#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "FormatSearch.h"
#include "PixelTypes.h"
#include "qmxcam.h"
#include "support/Devices.h"
#include "support/Resources.h"
#include "support/ScriptedPeer.h"

namespace {

using namespace qmx;
using namespace qmx::cam;
using namespace test;

const std::string session = setUp;
std::string NotFound(unsigned cseq) {
    return "RTSP/1.0 404 Not Found\r\nCSeq: " + std::to_string(cseq) + "\r\n\r\n";
}

std::string Catalogue(IDevice& device) {
    TArray<IDevice::SFormat> formats;
    formats.append({1, 1, {}});
    const bool any = device.GetFormats(formats);
    EXPECT_EQ(any, !formats.empty());
    std::string text;
    for (const auto& format : formats) {
        const char* const type = format.pixelType == priv::pixelTypeRaw      ? "raw"
                                 : format.pixelType == priv::pixelTypeJpegLs ? "jls"
                                 : format.pixelType == priv::pixelTypeJpeg   ? "jpeg"
                                                                             : "?";
        text += std::to_string(format.width) + "x" + std::to_string(format.height) + type + " ";
    }
    return text;
}

/// Runs something and gives what it wrote to the log.
template <class Action>
std::string LogOf(Action action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

TEST(Device, BeginsWithNothing) {
    const TSharedPtr<IDevice> device = MakeDevice();
    EXPECT_STREQ(device->deviceName.c_str(), "KORURTSP");
    EXPECT_STREQ(device->deviceAlias.c_str(), "KORURTSP");
    EXPECT_FALSE(device->IsOpen() || device->IsConnected() || device->IsStreaming() ||
                 device->IsSuspended() || device->Resume() || device->Suspend() ||
                 device->StopContinuous());
    EXPECT_EQ(device->GetConnection(), 0u);
    EXPECT_EQ(Catalogue(*device), "");
    std::uint16_t width = 1;
    std::uint16_t height = 1;
    SGuid type{};
    std::uint32_t value = 1;
    EXPECT_TRUE(device->GetFormat(width, height, type, value));
    EXPECT_EQ(width + height + value, 0u);
    EXPECT_EQ(type, priv::pixelFamilyRadiometric);
    FrameCallback callback = Ignore;
    void* context = &width;
    device->GetFrameCallback(callback, context);
    EXPECT_TRUE(callback == nullptr && context == nullptr);
    device->Close();

    MakeDevice();  // a second device registers the same types again
    const TArray<SPixelType> types = RegisteredPixelTypes();
    std::string names;
    for (const SPixelType& type9 : types) names += type9.name.c_str() + std::string(" ");
    EXPECT_EQ(names, "F7M0 F7M2 F7M3 UYVY YUY2 YVYU YUYV Y800 BGR8 ");
    EXPECT_EQ(types[0].second, priv::pixelFamilyRadiometric);
    EXPECT_EQ(types[8].byte, 3);
}

TEST(Device, OpensWhatACameraDescribes) {
    const std::string odd =
        "v=0\nm=v 0 RTP/AVP 1 2\na=rtpmap:1 ZRAWx\na=rtpmap:2 ZRA\na=framesize:65537-70000\n";
    const std::string jls = Description(2, mjlsBody);
    const std::string noFormats = "CKORURTSPDevice::Open: Failed to get RTSP/SDP formats.\n";
    const std::string noServer =
        "CKORURTSPDevice::Open: Failed to connect to RTSP server on 127.0.0.1.\n";
    struct {
        std::vector<std::string> answers;
        const char* methods;
        const char* catalogue;
        std::string log;  // empty: the device is open then
    } const cases[] = {
        {{Ok(0), Description(1, rawBody)}, "OPTIONS DESCRIBE", "640x480raw 320x240raw ", ""},
        {{Ok(0), Description(1, jpegBody)}, "OPTIONS DESCRIBE", "", ""},
        {{Ok(0), Description(1, odd)}, "OPTIONS DESCRIBE", "1x4464raw ", ""},
        {{Ok(0), NotFound(1), jls, Description(3, jpegBody)},
         "OPTIONS DESCRIBE DESCRIBE DESCRIBE",
         "8x6jls 8x6jpeg ",
         ""},
        {{Ok(0), NotFound(1), jls, NotFound(3)},
         "OPTIONS DESCRIBE DESCRIBE DESCRIBE",
         "8x6jls ",
         ""},
        {{Ok(0), NotFound(1), NotFound(2)}, "OPTIONS DESCRIBE DESCRIBE", "", noFormats},
        {{test::closeConnection}, "OPTIONS", "", noServer},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.answers.back());
        const bool opens = row.log.empty();
        std::vector<std::string> answers = row.answers;
        if (opens) answers.push_back(test::closeConnection);  // the next opening begins anew
        CScriptedPeer peer(answers, "127.0.0.1", rtspPort);
        const TSharedPtr<IDevice> device = MakeDevice();
        EXPECT_EQ(LogOf([&] { EXPECT_EQ(device->Open(Camera(), streamsOnly), opens); }), row.log);
        EXPECT_EQ(device->IsOpen(), opens);
        EXPECT_FALSE(device->IsConnected());
        EXPECT_EQ(Catalogue(*device), row.catalogue);
        EXPECT_EQ(peer.Methods(), row.methods);
        device->Close();
        EXPECT_FALSE(device->IsOpen());
        EXPECT_EQ(Catalogue(*device), row.catalogue) << "the old catalogue stays";
    }
}

TEST(Device, KeepsAnAddressUntilItIsClosed) {
    CScriptedPeer peer({Ok(0), Description(1, rawBody), Ok(0), Description(1, rawBody)},
                       "127.0.0.2", rtspPort);
    const TSharedPtr<IDevice> device = MakeDevice();
    EXPECT_TRUE(device->Open(Camera("127.0.0.2"), 0));
    EXPECT_EQ(peer.Methods(), "");
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(device->Open(Camera("127.0.0.3"), 1)); }),
              "CKORURTSPDevice::Open: arbConnect(127.0.0.2) failed.\n");
    EXPECT_TRUE(device->Open(Camera("127.0.0.3"), streamsOnly));
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(device->Open(Camera(), streamsOnly)); }),
              "CKORURTSPDevice::Open: Failed to connect to RTSP server on 127.0.0.2.\n")
        << "a connected client refuses, and the device ends closed";
    EXPECT_FALSE(device->IsOpen());
    EXPECT_TRUE(device->Open(Camera("127.0.0.2"), streamsOnly));
    EXPECT_EQ(Catalogue(*device), "640x480raw 320x240raw 640x480raw 320x240raw ");
}

TEST(Device, TellsWhichStepOfAStartFailed) {
    const std::string prefix = "CKORURTSPDevice::StartContinuous: ";
    const std::string noFormat = prefix + "Failed to find a suitable format.\n";
    const std::string noSetup = prefix + "RTSP session setup failed.\n";
    const std::string noPlay = prefix + "Failed to play RTSP session.\n";
    const std::string made = Ok(2, session);
    struct {
        std::vector<std::string> answers;  // from SETUP on
        std::uint16_t width;
        std::string log;
        const char* methods;  // from SETUP on
    } const cases[] = {
        {{}, 0, noFormat, ""},
        {{NotFound(2)}, 640, noSetup, " SETUP"},
        {{Ok(2, "Session: s\r\nTransport: RTP/AVP\r\n")}, 640, noSetup, " SETUP"},
        {{made, NotFound(3)}, 640, noPlay, " SETUP PLAY"},
        {{made, Ok(3, "Session: s;timeout=9\r\n")}, 640, noPlay, " SETUP PLAY"},
        {{made, test::closeConnection}, 640, noPlay, " SETUP PLAY"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.log + row.methods);
        std::vector<std::string> answers = {Ok(0), Description(1, rawBody)};
        answers.insert(answers.end(), row.answers.begin(), row.answers.end());
        CScriptedPeer peer(answers, "127.0.0.1", rtspPort);
        const TSharedPtr<IDevice> device = MakeDevice();
        ASSERT_TRUE(device->Open(Camera(), streamsOnly));
        const std::size_t threads = test::ThreadCount();
        EXPECT_TRUE(device->SetFormat(row.width, 480, priv::pixelTypeRaw));
        EXPECT_EQ(LogOf([&] { EXPECT_FALSE(device->StartContinuous(Ignore, nullptr)); }), row.log);
        EXPECT_FALSE(device->IsStreaming());
        EXPECT_EQ(test::ThreadCount(), threads);
        EXPECT_EQ(peer.Methods(), std::string("OPTIONS DESCRIBE") + row.methods);
    }
}

TEST(Device, StartsStopsAndStartsAgain) {
    const std::string play = "Session: s\r\n";
    CScriptedPeer peer(
        {Ok(0), Description(1, rawBody), Ok(2, session), Ok(3, play), Ok(4), Ok(5), Ok(6, session),
         Ok(7, play), Ok(8), Ok(9), Ok(10, session), Ok(11, play), Ok(12), Ok(13)},
        "127.0.0.1", rtspPort);
    const TSharedPtr<IDevice> device = MakeDevice();
    ASSERT_TRUE(device->Open(Camera(), streamsOnly));
    device->SetFormat(400, 300, priv::pixelTypeRaw);
    int context = 0;
    ASSERT_TRUE(device->StartContinuous(Ignore, &context));
    EXPECT_TRUE(device->SetFormat(400, 300, priv::pixelTypeRaw)) << "no interruption";
    EXPECT_TRUE(device->IsStreaming());
    EXPECT_TRUE(device->Suspend());
    EXPECT_TRUE(device->IsSuspended() && !device->IsStreaming());
    FrameCallback callback = nullptr;
    void* given = nullptr;
    device->GetFrameCallback(callback, given);
    EXPECT_TRUE(callback == Ignore && given == &context);
    EXPECT_TRUE(device->Resume());
    EXPECT_FALSE(device->Resume() || device->IsSuspended());
    EXPECT_TRUE(device->SetFormat(640, 480, priv::pixelTypeRaw));
    EXPECT_TRUE(device->IsStreaming());
    EXPECT_TRUE(device->StopContinuous());
    EXPECT_FALSE(device->StopContinuous() || device->IsStreaming());
    EXPECT_FALSE(device->StartContinuous(nullptr, nullptr));

    const std::string start = " SETUP PLAY PAUSE TEARDOWN";
    EXPECT_EQ(peer.Methods(), "OPTIONS DESCRIBE" + start + start + start);
    EXPECT_TRUE(peer.Requests()[2].starts_with("SETUP rtsp://127.0.0.1:554/sid=97 "));
    EXPECT_TRUE(peer.Requests()[10].starts_with("SETUP rtsp://127.0.0.1:554/sid=96 "));
}

const std::string notStarted = "CKORURTSPDevice::StartContinuous: Failed to start RTP reciever.\n";
const std::string noSetup = "CKORURTSPDevice::StartContinuous: RTSP session setup failed.\n";

// Neither a stop nor a close ends the receiver of a paused device. The first start after the close
// fails and ends what was left over; the second one streams.
TEST(Device, StreamsAgainAfterACloseWhilePaused) {
    const std::string play = "Session: s\r\n";
    CScriptedPeer peer(
        {Ok(0), Description(1, rawBody), Ok(2, session), Ok(3, play), Ok(4), Ok(5), Ok(0),
         Description(1, rawBody), Ok(2, session), Ok(3), Ok(4, session), Ok(5, play), Ok(6), Ok(7)},
        "127.0.0.1", rtspPort);
    const std::size_t threads = test::ThreadCount();
    const TSharedPtr<IDevice> device = MakeDevice();
    const auto start = [&] { return device->StartContinuous(Ignore, nullptr); };
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(device->StartContinuous(nullptr, nullptr)); }), notStarted);
    ASSERT_TRUE(device->Open(Camera(), streamsOnly));
    device->SetFormat(640, 480, priv::pixelTypeRaw);
    ASSERT_TRUE(start());
    EXPECT_TRUE(Set(*device, "/Paused", true));
    EXPECT_FALSE(device->StopContinuous() || device->Suspend());
    EXPECT_TRUE(device->IsSuspended());
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(device->Resume() || start()); }), notStarted);
    device->Close();
    EXPECT_TRUE(device->IsStreaming() && !device->IsOpen());
    ASSERT_TRUE(device->Open(Camera(), streamsOnly));
    EXPECT_EQ(test::ThreadCount(), threads + 3);
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(start()); }), notStarted);
    EXPECT_TRUE(test::WaitFor([&] { return test::ThreadCount() == threads; }));
    EXPECT_TRUE(start());
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(start()); }), notStarted);
    EXPECT_TRUE(device->StopContinuous());
    EXPECT_EQ(peer.Methods(),
              "OPTIONS DESCRIBE SETUP PLAY PAUSE TEARDOWN OPTIONS DESCRIBE SETUP TEARDOWN SETUP "
              "PLAY PAUSE TEARDOWN");
}

// A camera that refuses TEARDOWN keeps the session of a paused device past a close. Where it lets
// the session play on, that is a stream like any other; where not, a start ends the receiver.
TEST(Device, APausedSessionMayOutliveAClose) {
    const std::string play = "Session: s\r\n";
    CScriptedPeer peer(
        {Ok(0), Description(1, rawBody), Ok(2, session), Ok(3, play), Ok(4), NotFound(5), Ok(0),
         Description(1, rawBody), Ok(2, play), Ok(3), Ok(4), Ok(5, session), Ok(6, play)},
        "127.0.0.1", rtspPort);
    const std::size_t threads = test::ThreadCount();
    const TSharedPtr<IDevice> device = MakeDevice();
    const auto refused = [&] { EXPECT_FALSE(device->StartContinuous(Ignore, nullptr)); };
    ASSERT_TRUE(device->Open(Camera(), streamsOnly));
    device->SetFormat(640, 480, priv::pixelTypeRaw);
    ASSERT_TRUE(device->StartContinuous(Ignore, nullptr));
    EXPECT_TRUE(Set(*device, "/Paused", true));
    device->Close();
    ASSERT_TRUE(device->Open(Camera(), streamsOnly));
    EXPECT_TRUE(Set(*device, "/Paused", false));
    EXPECT_EQ(LogOf(refused), notStarted);
    EXPECT_EQ(test::ThreadCount(), threads + 3) << "it plays, and nothing has changed";
    EXPECT_TRUE(Set(*device, "/Paused", true));
    EXPECT_EQ(LogOf(refused), noSetup);
    EXPECT_TRUE(test::WaitFor([&] { return test::ThreadCount() == threads; }));
    device->Close();
    EXPECT_EQ(peer.Methods(),
              "OPTIONS DESCRIBE SETUP PLAY PAUSE TEARDOWN OPTIONS DESCRIBE PLAY PAUSE TEARDOWN");
}

TEST(FormatSearch, TakesWhatIsCloserInBothDimensions) {
    struct {
        const char* name;
        std::vector<std::pair<std::uint32_t, std::uint32_t>> sizes;
        std::uint16_t width;
        std::uint16_t height;
        int taken;  // -1: none
    } const cases[] = {
        {"exact", {{640, 480}, {320, 240}}, 320, 240, 1},
        {"closer", {{640, 480}, {320, 240}}, 400, 300, 1},
        {"the first of equals", {{640, 480}, {640, 480}}, 640, 480, 0},
        {"worse in one dimension", {{640, 100}, {100, 480}}, 640, 480, 0},
        {"the other order", {{100, 480}, {640, 100}}, 640, 480, 0},
        {"farther than nothing", {{640, 480}}, 300, 240, -1},
        {"no width wanted", {{640, 480}}, 0, 480, -1},
        {"a format without a height", {{640, 0}}, 640, 480, -1},
        {"sizes beyond 16 bits don't wrap", {{65536 + 640, 480}, {600, 400}}, 640, 480, 1},
        {"sizes beyond 31 bits are far", {{0x80000000u + 640, 480}}, 640, 480, -1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        SRtspStream stream;
        auto& formats = stream.media.emplace_back().formats;
        for (const auto& [width, height] : row.sizes) {
            formats.push_back({"96", "ZRAW", width, height, ""});
        }
        const SRtspFormat* const found =
            priv::FindFormat(stream, priv::rawKind, row.width, row.height);
        EXPECT_EQ(found, row.taken < 0 ? nullptr : &formats[static_cast<std::size_t>(row.taken)]);
    }
}

TEST(FormatSearch, MakesPaths) {
    EXPECT_EQ(priv::RawPaths({"96", "", 0, 0, ""}).control, "/sid=96");
    const std::pair<std::optional<double>, const char*> rates[] = {
        {std::nullopt, ""},
        {9.0, "?frate=9"},
        {7.5, "?frate=8"},
        {-2.5, "?frate=-3"},
        {7.4, "?frate=7"},
        {1e12, "?frate=-2147483648"},
        {std::nan(""), "?frate=-2147483648"}};
    for (const auto& [rate, query] : rates) {
        const priv::SStreamPaths paths = priv::CompressedPaths(priv::jpegKind, rate);
        EXPECT_EQ(paths.setup, std::string("/mjpg/stream=0") + query);
        EXPECT_EQ(paths.control, "/mjpg");
    }
}

}  // namespace
