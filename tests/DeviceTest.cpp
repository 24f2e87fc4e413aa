#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <functional>
#include <optional>
#include <system_error>

#include "FormatSearch.h"
#include "PixelTypes.h"
#include "qmxcam.h"
#include "support/Devices.h"
#include "support/Resources.h"
#include "support/RtpPeers.h"
#include "support/ScriptedPeer.h"

namespace {

using namespace qmx;
using namespace qmx::cam;
using namespace test;

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

/// Runs an action and returns its lines in the log.
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
}

std::string Text(const SGuid& guid) {
    const auto& [first, second, third, rest] = guid;
    char text[40];
    std::snprintf(text, sizeof(text), "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", first,
                  second, third, rest[0], rest[1], rest[2], rest[3], rest[4], rest[5], rest[6],
                  rest[7]);
    return text;
}

TEST(Device, RegistersItsPixelTypes) {
    const char expected[] =
        "F7M0 44ACBC8C-03B3-4599-B784-14DAD5C4BBF8 2 3 6D4A7D67-C5FB-4DE1-9904-E56F067AB126\n"
        "F7M2 F5143BE1-3F5C-46E8-99B7-E5BC2A0A9990 2 3 6D4A7D67-C5FB-4DE1-9904-E56F067AB126\n"
        "F7M3 6AAAF0FA-3BCF-41A4-842E-EEE17BFA1C00 2 10 1B6BF263-9221-4B15-B247-D66E664A6170\n"
        "UYVY BB8A3D05-C4F6-4193-B198-08D9E797E886 2 10 1B6BF263-9221-4B15-B247-D66E664A6170\n"
        "YUY2 88DF0B84-7417-41CB-9B49-2F585323D620 2 10 1B6BF263-9221-4B15-B247-D66E664A6170\n"
        "YVYU BA6665B6-45C6-4F68-AD9E-2D77884776A3 2 10 1B6BF263-9221-4B15-B247-D66E664A6170\n"
        "YUYV 296020A9-9BFF-4ADD-9763-74CA3E85FC35 2 10 1B6BF263-9221-4B15-B247-D66E664A6170\n"
        "Y800 327F8ED5-4584-48C7-9FB1-E326376CD4B8 2 10 1B6BF263-9221-4B15-B247-D66E664A6170\n"
        "BGR8 5BA4C88B-EBB4-4676-88E4-FC5C0FF6EB36 3 10 1B6BF263-9221-4B15-B247-D66E664A6170\n";
    MakeDevice();
    MakeDevice();  // registers the same types again
    std::string registered;
    for (const SPixelType& type : RegisteredPixelTypes()) {
        registered +=
            type.name.c_str() + (" " + Text(type.pixelType)) + " " + std::to_string(type.byte) +
            " " + std::to_string(static_cast<int>(type.dataType)) + " " + Text(type.second) + "\n";
    }
    EXPECT_EQ(registered, expected);
    EXPECT_EQ(Text(priv::pixelTypeJpegLs), "ADA2658E-40C0-4C31-9C44-7667B8169FF6");
    EXPECT_EQ(Text(priv::pixelTypeJpeg), "BD7EEE6E-81B9-4D4D-A795-D40C99D6D91B");
}

// The descriptions of a camera determine the result of `Open`. In every case another camera can be
// opened afterwards, and only the catalogue of the first one remains.
TEST(Device, OpensWhatACameraDescribes) {
    const std::string odd =
        "v=0\nm=v 0 RTP/AVP 1 2 3 4\na=rtpmap:1 ZRAWx\na=rtpmap:2 ZRA\na=rtpmap:3 xZRAW\n"
        "a=rtpmap:4 zraw\na=framesize:65537-70000\n";
    const std::string jls = Description(mjlsBody);
    const std::string noFormats = "CKORURTSPDevice::Open: Failed to get RTSP/SDP formats.\n";
    const std::string noServer =
        "CKORURTSPDevice::Open: Failed to connect to RTSP server on 127.0.0.1.\n";
    const struct {
        Answers answers;
        std::string catalogue;
        std::string log;  // empty: the device is open then
    } cases[] = {
        {opening, "640x480raw 320x240raw ", ""},
        {{Ok(), Description(jpegBody)}, "", ""},
        {{Ok(), Description(odd)}, "1x4464raw ", ""},
        {{Ok(), Refusal(), jls, Description(jpegBody)}, "8x6jls 8x6jpeg ", ""},
        {openingMjls, "8x6jls ", ""},
        {{Ok(), Refusal(), Refusal()}, "", noFormats},
        {{closeConnection}, "", noServer},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.answers.back());
        const bool opens = row.log.empty();
        CScriptedPeer peer(row.answers, "127.0.0.1", rtspPort);
        CScriptedPeer next(opening, "127.0.0.2", rtspPort);
        // Serves both addresses, but one connection at a time: the first must have been closed.
        CScriptedPeer tree({"OK double 25\n"}, "0.0.0.0", treePort, "\n");
        const TSharedPtr<IDevice> device = MakeDevice();
        EXPECT_EQ(LogOf([&] { EXPECT_EQ(device->Open(Camera(), treeAndStreams), opens); }),
                  row.log);
        EXPECT_TRUE(device->IsOpen() == opens && device->IsConnected() == opens);
        EXPECT_EQ(Catalogue(*device), row.catalogue);
        EXPECT_EQ(peer.Requests().size(), row.answers.size());
        for (std::size_t i = 1; i < row.answers.size(); ++i) {
            EXPECT_EQ(UrlPath(peer, i), i == 1 ? "/" : i == 2 ? "/mjls" : "/mjpg");
        }
        device->Close();
        EXPECT_FALSE(device->IsOpen() || device->IsConnected() || device->GetConnection() != 0);
        EXPECT_EQ(Catalogue(*device), row.catalogue);
        ASSERT_TRUE(device->Open(Camera("127.0.0.2"), treeAndStreams));
        EXPECT_EQ(Catalogue(*device), row.catalogue + "640x480raw 320x240raw ");
        ASSERT_TRUE(device->Open(Camera("127.0.0.2"), 1)) << "replaces the connection";
        EXPECT_EQ(Get(*device, "/FrameRate"), "25") << "the rate of a raw camera";
    }
}

TEST(Device, KeepsAnAddressUntilItIsClosed) {
    CScriptedPeer peer(opening, "127.0.0.2", rtspPort);
    const TSharedPtr<IDevice> device = MakeDevice();
    EXPECT_TRUE(device->Open(Camera("127.0.0.2"), 4));  // with an unknown bit
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(device->Open(Camera("127.0.0.3"), treeAndStreams)); }),
              "CKORURTSPDevice::Open: arbConnect(127.0.0.2) failed.\n");
    EXPECT_EQ(peer.Methods(), "") << "the node tree comes first";
    EXPECT_TRUE(device->Open(Camera("127.0.0.3"), streamsOnly | 4));
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(device->Open(Camera(), streamsOnly)); }),
              "CKORURTSPDevice::Open: Failed to connect to RTSP server on 127.0.0.2.\n")
        << "a connected client refuses, and the device ends closed";
    EXPECT_FALSE(device->IsOpen());
}

const std::string prefix = "CKORURTSPDevice::StartContinuous: ";
const std::string notStarted = prefix + "Failed to start RTP reciever.\n";
const std::string noFormat = prefix + "Failed to find a suitable format.\n";
const std::string noSetup = prefix + "RTSP session setup failed.\n";
const std::string noPlay = prefix + "Failed to play RTSP session.\n";

TEST(Device, TellsWhichStepOfAStartFailed) {
    const std::string made = Ok(setUp);
    const struct {
        Answers answers;  // from SETUP on
        std::uint16_t width;
        std::string log;
        const char* methods;  // from SETUP on
    } cases[] = {
        {{}, 0, noFormat, ""},
        {{Refusal()}, 640, noSetup, " SETUP"},
        {{Ok("Session: s\r\nTransport: RTP/AVP\r\n")}, 640, noSetup, " SETUP"},
        {{made, Refusal()}, 640, noPlay, " SETUP PLAY"},
        {{made, Ok("Session: s;timeout=9\r\n")}, 640, noPlay, " SETUP PLAY"},
        {{made, closeConnection}, 640, noPlay, " SETUP PLAY"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.log + row.methods);
        CScriptedPeer peer(Joined(opening, row.answers), "127.0.0.1", rtspPort);
        const TSharedPtr<IDevice> device = MakeDevice();
        ASSERT_TRUE(device->Open(Camera(), streamsOnly));
        EXPECT_TRUE(device->SetFormat(row.width, 480, priv::pixelTypeRaw));
        const std::size_t descriptors = DescriptorCount();
        EXPECT_EQ(LogOf([&] { EXPECT_FALSE(device->StartContinuous(Ignore, nullptr)); }), row.log);
        EXPECT_FALSE(device->IsStreaming());
        EXPECT_TRUE(WaitFor([&] { return ThreadCount() == ThreadsWithoutPeers() + 1; }));
        EXPECT_LE(DescriptorCount(), descriptors);
        EXPECT_EQ(peer.Methods(), std::string("OPTIONS DESCRIBE") + row.methods);
    }
}

TEST(Device, StartsStopsAndStartsAgain) {
    const Answers run = Joined(starting, stopping);
    CScriptedPeer peer(Joined(Joined(opening, run), run, run, run), "127.0.0.1", rtspPort);
    const TSharedPtr<IDevice> device = MakeDevice();
    ASSERT_TRUE(device->Open(Camera(), streamsOnly));
    device->SetFormat(400, 300, priv::pixelTypeRaw);
    int context = 0;
    ASSERT_TRUE(device->StartContinuous(Ignore, &context));
    EXPECT_TRUE(device->SetFormat(400, 300, priv::pixelTypeRaw)) << "no interruption";
    EXPECT_TRUE(device->IsStreaming());
    EXPECT_TRUE(device->Suspend());
    EXPECT_TRUE(device->SetFormat(640, 300, priv::pixelTypeRaw)) << "for the next start";
    EXPECT_TRUE(device->IsSuspended() && !device->IsStreaming());
    FrameCallback callback = nullptr;
    void* given = nullptr;
    device->GetFrameCallback(callback, given);
    EXPECT_TRUE(callback == Ignore && given == &context);
    EXPECT_TRUE(device->Resume());
    EXPECT_FALSE(device->Resume() || device->IsSuspended());
    device->SetFormat(640, 480, priv::pixelTypeRaw);  // the same stream, restarted
    device->SetFormat(320, 480, priv::pixelTypeRaw);
    EXPECT_TRUE(device->IsStreaming());
    EXPECT_EQ(LogOf([&] { EXPECT_TRUE(device->SetFormat(320, 480, priv::pixelTypeJpeg)); }),
              noFormat);
    EXPECT_FALSE(device->IsStreaming() || device->IsSuspended());
    EXPECT_FALSE(device->StopContinuous());

    const std::string start = " SETUP PLAY PAUSE TEARDOWN";
    EXPECT_EQ(peer.Methods(), "OPTIONS DESCRIBE" + start + start + start + start);
    const char* const paths[] = {"/sid=97", "/sid=96", "/sid=96", "/sid=97"};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(UrlPath(peer, 2 + 4 * i), paths[i]);
}

// Neither a stop nor a close ends the receiver of a paused device. The first start after the close
// fails and ends that receiver; the second one streams.
TEST(Device, StreamsAgainAfterACloseWhilePaused) {
    const Answers leftOver = Joined(opening, starting, stopping, opening);
    const Answers pauseAndPlay = {Ok(), starting.back()};
    CScriptedPeer peer(
        Joined(Joined(leftOver, {Ok(setUp), Ok()}, starting), pauseAndPlay, stopping), "127.0.0.1",
        rtspPort);
    const std::size_t threads = ThreadsWithoutPeers() + 1;
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
    EXPECT_TRUE(WaitFor([&] { return ThreadCount() == threads + 3; }));
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(start()); }), notStarted);
    EXPECT_TRUE(WaitFor([&] { return ThreadCount() == threads; }));
    EXPECT_TRUE(start());
    EXPECT_TRUE(Set(*device, "/Paused", true));
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(start()); }), notStarted);
    EXPECT_EQ(ThreadCount(), threads + 3) << "a paused stream is not one that was left over";
    EXPECT_TRUE(Set(*device, "/Paused", false));
    EXPECT_TRUE(device->StopContinuous());
    EXPECT_EQ(peer.Methods(),
              "OPTIONS DESCRIBE SETUP PLAY PAUSE TEARDOWN OPTIONS DESCRIBE SETUP TEARDOWN SETUP "
              "PLAY PAUSE PLAY PAUSE TEARDOWN");
}

// If a camera refuses TEARDOWN, the session of a paused device survives a close. If it can be
// resumed, it is a stream like any other; if not, a start ends the receiver.
TEST(Device, APausedSessionMayOutliveAClose) {
    const Answers kept = Joined(opening, starting, {Ok(), Refusal()}, opening);
    const Answers failing = Joined(opening, {Ok(setUp), Ok()});
    const std::size_t threads = ThreadsWithoutPeers() + 1;
    for (const bool resumes : {true, false}) {
        CScriptedPeer peer(
            resumes ? Joined(kept, {starting.back()}, stopping, failing) : Joined(kept, {Ok()}),
            "127.0.0.1", rtspPort);
        const TSharedPtr<IDevice> device = MakeDevice();
        const auto refused = [&] { EXPECT_FALSE(device->StartContinuous(Ignore, nullptr)); };
        ASSERT_TRUE(device->Open(Camera(), streamsOnly));
        device->SetFormat(640, 480, priv::pixelTypeRaw);
        ASSERT_TRUE(device->StartContinuous(Ignore, nullptr));
        EXPECT_TRUE(Set(*device, "/Paused", true));
        device->Close();
        ASSERT_TRUE(device->Open(Camera(), streamsOnly));
        if (resumes) {
            for (const bool paused : {false, true}) {
                EXPECT_TRUE(Set(*device, "/Paused", paused));
                EXPECT_EQ(LogOf(refused), notStarted);
                EXPECT_EQ(ThreadCount(), threads + 3) << "it is a stream, and nothing has changed";
            }
            device->Close();
            ASSERT_TRUE(device->Open(Camera(), streamsOnly));
        }
        EXPECT_EQ(LogOf(refused), resumes ? notStarted : noSetup);
        EXPECT_TRUE(WaitFor([&] { return ThreadCount() == threads; }));
        device->Close();
        EXPECT_EQ(
            peer.Methods(),
            std::string("OPTIONS DESCRIBE SETUP PLAY PAUSE TEARDOWN OPTIONS DESCRIBE ") +
                (resumes ? "PLAY PAUSE TEARDOWN OPTIONS DESCRIBE SETUP TEARDOWN" : "TEARDOWN"));
    }
}

// A stop from the frame callback would wait for its own thread. Operations that stop the stream
// throw there, before they change the device or send anything to the camera.
TEST(Device, ACallbackMayTryToStopInVain) {
    const CUdpPeer camera;
    const std::string ports = "Transport: server_port=1-" + std::to_string(camera.port()) + "\r\n";
    CScriptedPeer peer(Joined(openingMjls, {Ok("Session: s\r\n" + ports), starting[1]}, stopping),
                       "127.0.0.1", rtspPort);
    struct SHost {
        TSharedPtr<IDevice> device = MakeDevice();
        std::atomic<bool> started{false};
        std::atomic<bool> done{false};
    } host;
    const auto callback = [](void* context, const std::uint8_t*, std::uint32_t) {
        auto& self = *static_cast<SHost*>(context);
        EXPECT_TRUE(self.started);  // what the start wrote is visible here
        const std::function<void()> calls[] = {
            [&] { self.device->StopContinuous(); }, [&] { self.device->Suspend(); },
            [&] { self.device->SetFormat(1, 1, priv::pixelTypeJpeg); },
            [&] { Set(*self.device, "/FrameRate", 5.0); }, [&] { self.device->Close(); }};
        for (const auto& call : calls) EXPECT_THROW(call(), std::system_error);
        self.done = true;
    };
    IDevice& device = *host.device;
    ASSERT_TRUE(device.Open(Camera(), streamsOnly));
    device.SetFormat(8, 6, priv::pixelTypeJpegLs);
    ASSERT_TRUE(device.StartContinuous(callback, &host));
    host.started = true;
    const std::string setup = peer.Requests().at(4);
    const int port = std::stoi(setup.substr(setup.find("client_port=") + 12));
    EXPECT_NE(camera.Next(), "") << "reports go to the second of its ports";
    camera.SendRtp(static_cast<std::uint16_t>(port), 1, 1, true, {"\0\0\0\0\xFF\xD8\xFF\xF7", 8});
    EXPECT_TRUE(WaitFor([&] { return host.done.load(); }));
    EXPECT_TRUE(device.IsOpen() && device.IsStreaming() && !device.IsSuspended());
    EXPECT_EQ(Get(device, "/FrameRate"), "9");
    device.SetFormat(8, 6, priv::pixelTypeJpegLs);  // is what it was
    EXPECT_EQ(peer.Methods(), "OPTIONS DESCRIBE DESCRIBE DESCRIBE SETUP PLAY");
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
        {"equal widths", {{640, 480}, {640, 512}}, 640, 512, 0},
        {"equal heights", {{512, 480}, {640, 480}}, 640, 480, 0},
        {"equally far", {{600, 440}, {680, 520}}, 640, 480, 0},
        {"worse in one dimension", {{640, 100}, {100, 480}}, 640, 480, 0},
        {"the other order", {{100, 480}, {640, 100}}, 640, 480, 0},
        {"farther than nothing", {{640, 480}}, 300, 240, -1},
        {"width 0 requested", {{640, 480}}, 0, 480, -1},
        {"a format without a height", {{640, 0}}, 640, 480, -1},
        {"sizes beyond 16 bits do not wrap", {{65536 + 640, 480}, {600, 400}}, 640, 480, 1},
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
