// A camera that sends the user's own pictures, written here by other programs.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include "FrameDecoders.h"
#include "FrameStamp.h"
#include "support/Folder.h"
#include "support/Program.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using test::Contains;
using test::CSimulator;
using test::InShell;
using test::RunProgram;

constexpr std::size_t pictureBytes = 160 * 128 * 2;
constexpr std::size_t stampBytes = 2 * framestamp::stampPixels;

Bytes Read(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Writes good and bad pictures into a folder, and the pixels that a receiver must get into
/// "expected".
void WritePictures(const std::string& folder) {
    const auto python = RunProgram({"/usr/bin/python3", "-c", R"(
import numpy, os, sys, tifffile
os.chdir(sys.argv[1])
for folder in ('mixed', 'sizes', 'empty', 'many'): os.mkdir(folder)
shape = (128, 160)
wide = numpy.random.default_rng(1).integers(0, 65536, (3,) + shape, dtype=numpy.uint16)
narrow = (wide[2] >> 8).astype(numpy.uint8)
wide[2] = narrow
tifffile.imwrite('mixed/a.tif', wide[0], photometric='minisblack', compression='zlib', byteorder='>')
tifffile.imwrite('b.tif', wide[1], photometric='minisblack')
tifffile.imwrite('mixed/c.TIFF', 255 - narrow, photometric='miniswhite', rowsperstrip=5)
open('mixed/index.jsonl', 'w').write('not a picture')
tifffile.imwrite('pages.tif', wide, photometric='minisblack', bigtiff=True)
wide.astype('<u2').tofile('expected')
open('cut.tif', 'wb').write(open('b.tif', 'rb').read()[:-100])
open('zeros.tif', 'wb').write(b'II*\0' + bytes(60))
tifffile.imwrite('sizes/a.tif', wide[0], photometric='minisblack')
tifffile.imwrite('sizes/b.tif', wide[0][:120], photometric='minisblack')
tifffile.imwrite('float.tif', wide[0].astype(numpy.float32), photometric='minisblack')
tifffile.imwrite('tiles.tif', wide[0], photometric='minisblack', tile=(16, 16))
tifffile.imwrite('colour.tif', numpy.dstack((narrow, narrow, narrow // 2)), photometric='rgb')
tifffile.imwrite('odd.tif', wide[0][:100, :100], photometric='minisblack')
tifffile.imwrite('small.tif', wide[0][:4, :4], photometric='minisblack')
for i in range(10000): os.link('b.tif', f'many/{i}.tif')
open('empty.png', 'wb').close()
open('text.png', 'w').write('not a picture'))",
                                    folder});
    ASSERT_EQ(python.status, 0) << python.errors;
    const auto shell = RunProgram(InShell(
        "cd " + folder + R"( && convert b.tif mixed/b.png && convert colour.tif colour.png &&
        convert b.tif -depth 4 few.png && head -c 20000 mixed/b.png > cut.png &&
        (head -c 20000 mixed/b.png; printf xxxx; tail -c +20005 mixed/b.png) > damaged.png &&
        cp b.tif secret.tif && chmod 0 secret.tif && ln -s nowhere gone.tif )"));
    ASSERT_EQ(shell.status, 0) << shell.errors;
}

class ImageCamera : public testing::Test {
   protected:
    void SetUp() override {
        for (const char* const tool :
             {"/usr/bin/python3 -c 'import tifffile'", "convert -version"}) {
            const auto missing = test::MissingTool(std::string(tool) + " >/dev/null 2>&1");
            if (!missing.empty()) GTEST_SKIP() << missing;
        }
        WritePictures(folder.path);
    }
    const test::SFolder folder;
};

TEST_F(ImageCamera, SendsThePicturesOfAFolderAndOfAFile) {
    const Bytes expected = Read(folder.path + "/expected");
    ASSERT_EQ(expected.size(), 3 * pictureBytes);
    for (const char* const source : {"mixed", "pages.tif"}) {
        for (const std::string type : {"raw", "jls", "jpeg"}) {
            SCOPED_TRACE(source + type);
            const CSimulator camera({"127.0.0.11,images=" + folder.path + "/" + source +
                                     ",streams=" + (type == "raw" ? "raw" : "mjls+mjpg")});
            const test::SFolder saved;
            const auto host = RunProgram({"qmxhost", "stream", "127.0.0.11", "--type", type,
                                          "--check", "--count", "7", "--save", saved.path});
            EXPECT_EQ(host.status, 0) << host.output << host.errors;
            if (type == "jpeg") continue;
            for (int number = 1; number <= 7; ++number) {
                Bytes frame = Read(saved.path + "/frame-00000" + std::to_string(number) +
                                   (type == "raw" ? ".raw" : ".jls"));
                if (type == "jls") frame = frames::DecodeJpegLs(frame).value().bytes;
                ASSERT_EQ(frame.size(), pictureBytes);
                const auto stamp = framestamp::ReadStamp(frame);
                const auto picture =
                    std::span(expected).subspan(stamp.number % 3 * pictureBytes, pictureBytes);
                EXPECT_TRUE(std::ranges::equal(std::span(frame).subspan(stampBytes),
                                               picture.subspan(stampBytes)))
                    << stamp.number;
            }
        }
    }
}

TEST_F(ImageCamera, StartsWithTenThousandFilesAndNamesTheFileThatItCannotSend) {
    { const CSimulator camera({"127.0.0.11,images=" + folder.path + "/many"}); }
    const struct {
        const char* path;
        const char* says;
        const char* settings = "";
    } rows[] = {
        {"nowhere", "No such file or directory"},
        {"gone.tif", "No such file or directory"},
        {"secret.tif", "Permission denied"},
        {"empty", "the folder has no .png, .tif or .tiff file"},
        {"empty.png", "the file is empty"},
        {"text.png", "the file is neither PNG nor TIFF"},
        {"cut.png", "the file is cut short"},
        {"cut.tif", "the file is cut short"},
        {"damaged.png", "IDAT: CRC error"},
        {"zeros.tif", "cannot read "},
        {"sizes/b.tif", "the picture has 160x120 pixels, but those before it have 160x128"},
        {"colour.png", "the picture has colours or transparency; convert it to grey"},
        {"colour.tif", "the picture has colours or transparency; convert it to grey"},
        {"few.png", "the picture has fewer than 8 bits per pixel"},
        {"float.tif", "the pixels are not unsigned numbers of 8 or 16 bits"},
        {"tiles.tif", "the picture is stored in tiles; store it in strips"},
        {"small.tif", "the picture has 4x4 pixels; each side must have 8 to 4096"},
        {"odd.tif", "an mjpg stream needs a width and a height in multiples of 8", ",streams=mjpg"},
        {"b.tif", "whose pictures have 160x128 pixels; leave size= out", ",size=640x512"},
    };
    for (const auto& row : rows) {
        const std::string file = folder.path + "/" + row.path;
        const std::string path =
            row.path == std::string("sizes/b.tif") ? folder.path + "/sizes" : file;
        // Without the capabilities that let root read everything.
        const auto outcome =
            RunProgram({"setpriv", "--bounding-set=-dac_override,-dac_read_search",
                        "--inh-caps=-all", "korusim", "127.0.0.11,images=" + path + row.settings});
        EXPECT_EQ(outcome.status, 1) << row.path;
        EXPECT_EQ(outcome.output, "") << row.path;
        EXPECT_TRUE(Contains(outcome.errors, row.says)) << outcome.errors;
        EXPECT_TRUE(Contains(outcome.errors, file) || row.settings[0] != '\0') << outcome.errors;
    }
}

}  // namespace
