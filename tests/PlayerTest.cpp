// Players by other authors as clients of the simulated camera.
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include "FrameStamp.h"
#include "support/Folder.h"
#include "support/Program.h"

namespace {

using test::Contains;
using test::CProgram;
using test::CSimulator;

constexpr std::size_t width = 160;
constexpr std::size_t pictureBytes = width * 128;
constexpr std::size_t pictures = 50;

/// Checks that a file contains the luminance of consecutive pictures.
void ExpectEveryPicture(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<std::uint8_t> bytes(std::istreambuf_iterator<char>(stream), {});
    ASSERT_EQ(bytes.size(), pictures * pictureBytes);
    std::uint32_t expected = 0;
    for (std::size_t at = 0; at < bytes.size(); at += pictureBytes) {
        const auto luminance = std::span(bytes).subspan(at, pictureBytes);
        const auto stamp = framestamp::ReadBlockStamp({luminance, width});
        EXPECT_EQ(stamp.state, framestamp::EStamp::Good);
        EXPECT_TRUE(at == 0 || stamp.number == expected) << stamp.number << ", not " << expected;
        expected = stamp.number + 1;
    }
}

// They find the stream by the control URLs of the description. The run is longer than the time-out
// of the session, which they have to keep alive; a client that does not loses its session.
TEST(Player, DecodesEveryPictureAndKeepsItsSession) {
    for (const char* const tool :
         {"ffmpeg -version", "gst-launch-1.0 --version", "gst-inspect-1.0 --exists jpegdec"}) {
        const auto missing = test::MissingTool(std::string(tool) + " >/dev/null 2>&1");
        if (!missing.empty()) GTEST_SKIP() << missing;
    }
    const std::string settings = ",size=160x128,streams=mjls+mjpg,rate=6,session-timeout=6";
    CSimulator cameras({"127.0.0.12" + settings, "127.0.0.13" + settings,
                        "127.0.0.14,size=64x48,sr=0,session-timeout=1"});
    const test::SFolder folder;
    const std::string count = std::to_string(pictures);
    CProgram ffmpeg({"ffmpeg", "-nostdin", "-v", "warning", "-xerror", "-rtsp_transport", "udp",
                     "-i", "rtsp://127.0.0.12/mjpg", "-frames:v", count, "-fps_mode", "passthrough",
                     "-f", "rawvideo", "-pix_fmt", "gray", folder.path + "/ffmpeg"});
    CProgram gst({"gst-launch-1.0", "-q", "rtspsrc", "location=rtsp://127.0.0.13/mjpg",
                  "protocols=udp", "!", "rtpjpegdepay", "!", "jpegdec", "!", "videoconvert", "!",
                  "video/x-raw,format=GRAY8", "!", "identity",
                  "eos-after=" + std::to_string(pictures + 1), "!", "filesink",
                  "location=" + folder.path + "/gst"});
    CProgram silent({"qmxhost", "stream", "127.0.0.14", "--duration", "3"});
    EXPECT_EQ(ffmpeg.Wait(), 0) << ffmpeg.Errors();
    EXPECT_EQ(gst.Wait(), 0) << gst.Errors();
    silent.Wait();
    cameras.Signal(SIGTERM);
    EXPECT_EQ(cameras.Wait(), 0);
    ExpectEveryPicture(folder.path + "/ffmpeg");
    ExpectEveryPicture(folder.path + "/gst");
    const std::string summary = cameras.Errors();
    const std::string reason =
        "ended because neither a request nor RTCP came from its receiver for 1 s";
    EXPECT_TRUE(Contains(summary, reason)) << summary;
    EXPECT_FALSE(Contains(summary, "receiver for 6 s")) << summary;
}

}  // namespace
