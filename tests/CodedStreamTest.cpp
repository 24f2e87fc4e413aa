// The coded streams from the simulator's encoders over the network to files, which two independent
// decoders must accept without a warning.
#include <charls/charls.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include "FrameDecoders.h"
#include "FrameQueue.h"
#include "FrameSaver.h"
#include "FrameStamp.h"
#include "PixelTypeNames.h"
#include "support/Folder.h"
#include "support/Program.h"
#include "support/Resources.h"
#include "support/ScriptedPeer.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;
using test::Contains;
using test::CProgram;
using test::CSimulator;
using test::InShell;
using test::RunProgram;
using test::SFolder;

/// Returns the name under which the host saves a frame.
std::string Frame(const SFolder& folder, int number, const char* extension) {
    return folder.path + "/frame-00000" + std::to_string(number) + extension;
}

Bytes Read(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Returns the warnings of ffmpeg about a file.
std::string Ffmpeg(const std::string& file, const std::string& output) {
    return RunProgram(InShell("ffmpeg -nostdin -v warning -xerror -i " + file + " " + output +
                              " 2>&1 || echo '[failed]'"))
        .output;
}

/// Streams from 127.0.0.11 with --check, which must find no damage. Returns the host's output.
std::string Stream(std::vector<std::string> options) {
    options.insert(options.begin(), {"qmxhost", "stream", "127.0.0.11", "--check"});
    CProgram host(options);
    const std::string output = host.ReadAll();
    EXPECT_EQ(host.Wait(), 0) << output << host.Errors();
    return output;
}

TEST(CodedStream, JpegFilesAreWholeInEveryForm) {
    if (const auto missing = test::MissingTool("ffmpeg -version"); !missing.empty()) {
        GTEST_SKIP() << missing;
    }
    // All are large enough to contain the byte FF; otherwise ffmpeg reports that the end of the
    // picture is missing.
    const char* const cases[] = {
        "q=10,restart=8,size=640x480",
        "q=50,subsampling=420,size=328x248",
        "q=99,subsampling=420,restart=1,mtu=200,size=200x104",
        "q=128,mtu=64,size=320x240",
        "q=255,restart=8,subsampling=420,size=640x480",
    };
    for (const char* const settings : cases) {
        SCOPED_TRACE(settings);
        const CSimulator camera({std::string("127.0.0.11,streams=mjls+mjpg,") + settings});
        const SFolder folder;
        Stream({"--type", "jpeg", "--count", "3", "--save", folder.path});
        for (const int number : {1, 2, 3}) {
            EXPECT_EQ(Ffmpeg(Frame(folder, number, ".jpg"), "-f null -"), "");
        }
    }
}

TEST(CodedStream, JpegLsFilesHoldTheExactPicture) {
    if (const auto missing = test::MissingTool("ffmpeg -version"); !missing.empty()) {
        GTEST_SKIP() << missing;
    }
    const CSimulator camera({"127.0.0.11,streams=mjls,size=168x72,size=640x480"});
    const SFolder folder;
    Stream({"--type", "jls", "--count", "3", "--rate", "25", "--save", folder.path});
    for (const int number : {1, 2, 3}) {
        const Bytes frame = Read(Frame(folder, number, ".jls"));
        ASSERT_GT(frame.size(), 8u);
        EXPECT_EQ(Bytes(frame.begin() + 4, frame.begin() + 8), (Bytes{0xFF, 0xD8, 0xFF, 0xF7}));
        const Bytes image(frame.begin() + 4, frame.end());
        Bytes pixels;
        charls::jpegls_decoder::decode(image, pixels);
        ASSERT_EQ(pixels.size(), 168u * 72 * 2);
        EXPECT_EQ(framestamp::ReadStamp(pixels).state, framestamp::EStamp::Good);

        const std::string bare = folder.path + "/bare.jls";
        const std::string other = folder.path + "/other" + std::to_string(number);
        std::ofstream(bare, std::ios::binary)
            .write(reinterpret_cast<const char*>(image.data()),
                   static_cast<std::streamsize>(image.size()));
        EXPECT_EQ(Ffmpeg(bare, "-f rawvideo -pix_fmt gray16le " + other), "");
        EXPECT_EQ(Read(other), pixels);
    }
}

// A bad network costs complete frames, and damages none.
TEST(CodedStream, LossNeverDamagesAFrame) {
    for (const std::string type : {"raw", "jls", "jpeg"}) {
        const CSimulator camera(
            {"127.0.0.11,size=320x240,rate=60,mtu=300,loss=0.002,reorder=0.001,"
             "duplicate=0.001,seed=7,streams=" +
             std::string(type == "raw" ? "raw" : "mjls+mjpg")});
        const std::string output = Stream({"--type", type, "--count", "60"});
        EXPECT_EQ(output.find(" 0 missing"), std::string::npos) << "nothing was lost: " << output;
    }
}

TEST(SavedFrames, AFailedSaveIsReportedAndLeavesNoPartialFile) {
    const CSimulator cameras({"127.0.0.11,size=128x96", "127.0.0.12,size=64x160"});
    const test::CScriptedPeer boaster(
        {test::Ok(0),
         test::Description(1,
                           "v=0\nm=video 0 RTP/AVP 96\na=rtpmap:96 ZRAW/9\n"
                           "a=framesize:96 65535-65535\n"),
         test::Ok(2, "Session: s\r\nTransport: server_port=7000-7001\r\n"),
         test::Ok(3, "Session: s\r\n"), test::Ok(4), test::Ok(5)},
        "127.0.0.13", 554);
    const SFolder folder;
    const struct {
        std::string command;
        int status;
        const char* says;
    } rows[] = {
        // 8 blocks of 512 bytes are less than a frame in either form.
        {"ulimit -f 8; qmxhost stream 127.0.0.11 --save $DIR", 1, "cannot write frame 1 "},
        {"ulimit -f 8; qmxhost stream 127.0.0.11 --save $DIR --as png", 1, "cannot write frame 1 "},
        {"qmxhost stream 127.0.0.11 --save /proc/self", 1, "cannot write frame 1 "},
        // A raw picture of this height has no pixels, which has nothing to do with disk space.
        {"qmxhost stream 127.0.0.12 --save $DIR --as png --count 2", 1, "were empty"},
        // A queue of such frames needs no memory before they arrive.
        {std::string(test::sanitized ? "" : "ulimit -v 700000; ") +
             "qmxhost stream 127.0.0.13 --save $DIR --no-tree --duration 0.1",
         4, "no frame came"},
    };
    for (const auto& row : rows) {
        const auto outcome = RunProgram(InShell("DIR=" + folder.path + "; " + row.command));
        SCOPED_TRACE(row.command + outcome.errors);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_TRUE(Contains(outcome.output, "saved 0 to ")) << outcome.output;
        EXPECT_TRUE(Contains(outcome.errors, row.says));
        EXPECT_TRUE(fs::is_empty(folder.path));
    }
    EXPECT_NO_THROW(frames::CFrameQueue().Reserve(SIZE_MAX));
}

TEST(SavedFrames, AFrameWithoutAPictureIsSkipped) {
    const SFolder folder;
    for (const auto& type : {frames::rawType, frames::jlsType, frames::jpegType}) {
        qmxhost::CFrameSaver saver({folder.path, qmxhost::ESaveAs::Png, "", false}, {1, 1, type},
                                   "camera");
        for (const Bytes& frame : {Bytes(1, 0xFF), Bytes()}) saver.Save({frame, {}});
        EXPECT_EQ(saver.totals().undecodable + 10 * saver.totals().empty, 11u);
    }
    EXPECT_TRUE(fs::is_empty(folder.path));
}

TEST(SavedFrames, TheExampleHostWritesThem) {
    const CSimulator camera({"127.0.0.11,size=64x48"});
    const SFolder folder;
    const std::string file = folder.path + "/frames";
    const auto host = RunProgram(
        InShell("cd $(dirname $(command -v minimal_host)) && minimal_host ./qmxcamKORURTSP.so " +
                file + " 3"));
    EXPECT_EQ(host.status, 0) << host.errors;
    const Bytes frames = Read(file);
    constexpr std::size_t size = 64 * 48 * 2;
    ASSERT_EQ(frames.size(), 3 * size);
    for (std::size_t at = 0; at < frames.size(); at += size) {
        const auto stamp = framestamp::ReadStamp(std::span(frames).subspan(at, size));
        EXPECT_EQ(stamp.state, framestamp::EStamp::Good);
    }
}

// A camera by other authors, because our own simulator may share our misreadings of RFC 2435.
TEST(ForeignCamera, FramesDecode) {
    const std::string load =
        "/usr/bin/python3 -c \"import gi; gi.require_version('GstRtspServer', '1.0')\"";
    if (const auto missing = test::MissingTool(load); !missing.empty()) GTEST_SKIP() << missing;
    CProgram camera({KORU_TEST_DIR "/gst-camera", "127.0.0.21"});
    ASSERT_EQ(camera.ReadLine(), "ready");
    const SFolder folder;
    CProgram host({"qmxhost", "stream", "127.0.0.21", "--no-tree", "--type", "jpeg", "--count", "9",
                   "--save", folder.path});
    EXPECT_EQ(host.Wait(), 0) << host.Errors();
    for (int number = 1; number <= 9; ++number) {
        const auto picture =
            frames::DecodeJpeg(Read(Frame(folder, number, ".jpg")), frames::EJpegForm::Luminance);
        ASSERT_TRUE(picture && picture->intact) << number;
        EXPECT_EQ(picture->width * picture->height, 320u * 240u);
    }
}

}  // namespace
