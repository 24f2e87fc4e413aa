// The coded streams as a user meets them, from the simulator's coders over the network to files,
// which two decoders that know nothing of each other must take without complaint.
#include <charls/charls.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FrameDecoders.h"
#include "FrameStamp.h"
#include "support/Program.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;
using test::CProgram;
using test::CSimulator;

/// A folder of its own, gone with the scope.
struct SFolder {
    SFolder() : path(::mkdtemp((fs::temp_directory_path() / "koru-XXXXXX").string().data())) {}
    SFolder(const SFolder&) = delete;
    SFolder& operator=(const SFolder&) = delete;
    ~SFolder() { fs::remove_all(path); }
    const std::string path;
};

/// "frame-000001" and so on: what the host calls the frames that it saves.
std::string Frame(const SFolder& folder, int number, const char* extension) {
    return folder.path + "/frame-00000" + std::to_string(number) + extension;
}

Bytes Read(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// What ffmpeg has to say of a file; nothing when it is content with all of it.
std::string Ffmpeg(const std::string& file, const std::string& output) {
    const std::string command =
        "ffmpeg -nostdin -v warning -xerror -i " + file + " " + output + " 2>&1";
    FILE* const pipe = ::popen(command.c_str(), "r");
    std::string said;
    char buffer[256];
    while (std::fgets(buffer, sizeof(buffer), pipe) != nullptr) said += buffer;
    if (::pclose(pipe) != 0) said += "[failed]";
    return said;
}

/// Streams from 127.0.0.11 with --check, which must find nothing; gives what the host printed.
std::string Stream(std::vector<std::string> options) {
    options.insert(options.begin(), {"qmxhost", "stream", "127.0.0.11", "--check"});
    CProgram host(options);
    const std::string output = host.ReadAll();
    EXPECT_EQ(host.Wait(), 0) << output << host.Errors();
    return output;
}

TEST(CodedStream, JpegFilesAreWholeInEveryForm) {
    // None so small that its data lacks the byte FF: ffmpeg then takes the end of the picture for
    // missing, whoever wrote it.
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
        EXPECT_EQ(korusim::ReadStamp(pixels).state, korusim::EStamp::Good);

        const std::string bare = folder.path + "/bare.jls";
        const std::string other = folder.path + "/other" + std::to_string(number);
        std::ofstream(bare, std::ios::binary)
            .write(reinterpret_cast<const char*>(image.data()),
                   static_cast<std::streamsize>(image.size()));
        EXPECT_EQ(Ffmpeg(bare, "-f rawvideo -pix_fmt gray16le " + other), "");
        EXPECT_EQ(Read(other), pixels);
    }
}

// A bad network costs whole frames; of what arrives, nothing is damaged.
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

// A camera whose server, coder and payloader are others' work: what we know of JPEG over RTP is not
// only our own reading of it.
TEST(ForeignCamera, FramesDecode) {
    CProgram camera({KORU_TEST_DIR "/gst-camera", "127.0.0.21"});
    ASSERT_EQ(camera.ReadLine(), "ready");
    const SFolder folder;
    CProgram host({"qmxhost", "stream", "127.0.0.21", "--no-tree", "--type", "jpeg", "--count", "9",
                   "--save", folder.path});
    EXPECT_EQ(host.Wait(), 0) << host.Errors();
    for (int number = 1; number <= 9; ++number) {
        const auto picture =
            qmxhost::DecodeJpeg(Read(Frame(folder, number, ".jpg")), qmxhost::EJpegForm::Luminance);
        ASSERT_TRUE(picture && picture->intact) << number;
        EXPECT_EQ(picture->width * picture->height, 320u * 240u);
    }
}

}  // namespace
