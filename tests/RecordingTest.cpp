// Recordings, read by programs from outside this project. The stamp in each page proves that its
// pixels are those of the frame.
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
#include "support/Resources.h"

namespace {

using test::Contains;
using test::CProgram;
using test::CSimulator;
using test::InShell;
using test::RunProgram;

constexpr std::size_t pageBytes = 64 * 48 * 2;

/// Checks that a file of 16-bit pixels consists of that many good pictures with ascending numbers.
void ExpectGoodPictures(const std::string& file, std::size_t count) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<std::uint8_t> bytes(std::istreambuf_iterator<char>(stream), {});
    ASSERT_EQ(bytes.size(), count * pageBytes);
    std::uint32_t last = 0;
    for (std::size_t at = 0; at < bytes.size(); at += pageBytes) {
        const auto stamp = framestamp::ReadStamp(std::span(bytes).subspan(at, pageBytes));
        EXPECT_EQ(stamp.state, framestamp::EStamp::Good);
        EXPECT_TRUE(at == 0 || stamp.number > last);
        last = stamp.number;
    }
}

/// Returns the number of pages of a recording, all of which Python must be able to read into a
/// file.
std::size_t ReadByPython(const std::string& recording, const std::string& to) {
    const auto result = RunProgram({"/usr/bin/python3", "-c", R"(
import datetime, json, sys, tifffile
with tifffile.TiffFile(sys.argv[1]) as file, open(sys.argv[2], 'wb') as out:
    times = [json.loads(page.description) for page in file.pages]
    for key in ('frame', 'elapsed'):
        assert all(a[key] < b[key] for a, b in zip(times, times[1:])), times
    for page, time in zip(file.pages, times):
        assert time['camera'] == '127.0.0.11' and time['format'].startswith('64x48 '), time
        utc = datetime.datetime.fromisoformat(time['utc'].replace('Z', '+00:00'))
        assert page.datetime == utc.replace(tzinfo=None, microsecond=0), (page.datetime, utc)
        out.write(page.asarray().tobytes())
    print(len(file.pages)))",
                                    recording, to});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(RunProgram({"tiffinfo", recording}).errors, "") << "every link leads to a page";
    return std::stoul("0" + result.output);
}

TEST(Recording, OpensInOtherPrograms) {
    for (const char* const tool :
         {"/usr/bin/python3 -c 'import tifffile'", "tiffinfo", "identify"}) {
        const auto missing =
            test::MissingTool(tool + std::string(" >/dev/null 2>&1 || [ $? = 1 ]"));
        if (!missing.empty()) GTEST_SKIP() << missing;
    }
    for (const std::string type : {"raw", "jls", "jpeg"}) {
        SCOPED_TRACE(type);
        const CSimulator camera(
            {"127.0.0.11,size=64x48,streams=" + std::string(type == "raw" ? "raw" : "mjls+mjpg")});
        const test::SFolder folder;
        const std::string file = folder.path + "/a.tif";
        const auto stream = RunProgram({"qmxhost", "stream", "127.0.0.11", "--type", type,
                                        "--count", "9", "--save", file, "--as", "tiff"});
        EXPECT_EQ(stream.status, 0) << stream.errors;
        EXPECT_EQ(ReadByPython(file, folder.path + "/python"), 9u);
        const auto info = RunProgram({"tiffinfo", file});
        EXPECT_TRUE(Contains(info.output, type == "jpeg" ? "RGB color" : "Bits/Sample: 16"));
        const auto magick = RunProgram(
            InShell("convert " + file + " -endian LSB -depth 16 gray:" + folder.path + "/magick"));
        EXPECT_EQ(magick.status, 0) << magick.errors;
        if (type == "jpeg") continue;
        ExpectGoodPictures(folder.path + "/python", 9);
        ExpectGoodPictures(folder.path + "/magick", 9);
    }
}

TEST(Recording, SurvivesWhatEndsIt) {
    const CSimulator camera({"127.0.0.11,size=64x48,rate=200"});
    const test::SFolder folder;
    const std::string file = folder.path + "/killed.tif";
    CProgram host({"qmxhost", "stream", "127.0.0.11", "--save", file, "--as", "tiff"});
    const auto size = [&] { return std::ifstream(file, std::ios::ate).tellg(); };
    EXPECT_TRUE(test::WaitFor([&] { return size() > 100 * std::streamoff{pageBytes}; }));
    host.Signal(SIGKILL);
    host.Wait();
    const std::size_t pages = ReadByPython(file, folder.path + "/pixels");
    EXPECT_GE(pages, 80u);
    ExpectGoodPictures(folder.path + "/pixels", pages);
}

// Each failure is reported with its reason, and what has been recorded before remains.
TEST(Recording, ReportsWhatItCannotWrite) {
    const CSimulator camera({"127.0.0.11,size=64x48,rate=200"});
    const test::SFolder folder;
    const std::string run = "qmxhost stream 127.0.0.11 --as tiff --save ";
    const std::string full = folder.path + "/full";
    const struct {
        std::string command;
        const char* says;
    } cases[] = {
        {run + folder.path, "Is a directory"},
        {run + "/nowhere/a.tif", "No such file or directory"},
        {"touch " + folder.path + "/a.tif; " + run + folder.path + "/a.tif", "--overwrite"},
        {"unshare -m sh -c 'mkdir " + full + "; mount -t tmpfs -o size=128k none " + full + "; " +
             run + full + "/a.tif; status=$?; cp " + full + "/a.tif " + folder.path +
             "; exit $status'",
         "No space left on device"},
    };
    for (const auto& row : cases) {
        const auto outcome = RunProgram(InShell(row.command));
        EXPECT_EQ(outcome.status, 1) << row.command;
        EXPECT_TRUE(Contains(outcome.errors, row.says)) << outcome.errors;
    }
    const std::size_t pages = ReadByPython(folder.path + "/a.tif", folder.path + "/pixels");
    EXPECT_GT(pages, 10u);
    ExpectGoodPictures(folder.path + "/pixels", pages);
}

TEST(SavedFrames, AnotherRunIsNotOverwrittenUnasked) {
    const CSimulator camera({"127.0.0.11,size=64x48"});
    const test::SFolder folder;
    const auto save = [&](const std::string& options) {
        return RunProgram(InShell("qmxhost stream 127.0.0.11 --save " + folder.path + options));
    };
    EXPECT_EQ(save(" --count 3").status, 0);
    const auto refused = save(" --count 2");
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(Contains(refused.errors, "--overwrite")) << refused.errors;
    EXPECT_EQ(save(" --count 2 --overwrite").status, 0);
    EXPECT_EQ(RunProgram({"ls", folder.path}).output,
              "frame-000001.raw\nframe-000002.raw\nindex.jsonl\n");
    const auto index = RunProgram({"cat", folder.path + "/index.jsonl"}).output;
    EXPECT_TRUE(Contains(index, R"("frame":2,"file":"frame-000002.raw","utc":"2)")) << index;
    EXPECT_TRUE(Contains(index, R"("width":64,"height":48,"length":6144,"type":"raw"})")) << index;
}

}  // namespace
