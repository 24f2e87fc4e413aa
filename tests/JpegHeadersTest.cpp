#include "JpegHeaders.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <vector>

// After <cstdio>, which it needs but does not include.
#include <jpeglib.h>

namespace {

using namespace qmx::cam;

/// The tables of libjpeg: an independent source for every constant of the headers.
class CReference {
   public:
    CReference() {
        compressor.err = jpeg_std_error(&errors);
        jpeg_create_compress(&compressor);
        compressor.input_components = 3;
        compressor.in_color_space = JCS_YCbCr;
        jpeg_set_defaults(&compressor);
    }
    ~CReference() { jpeg_destroy_compress(&compressor); }
    /// Returns the table of luminance (0) or chrominance (1) in row order.
    std::vector<int> Quantizer(int table, int quality) {
        jpeg_set_quality(&compressor, quality, TRUE);
        const auto& entries = compressor.quant_tbl_ptrs[table]->quantval;
        return {std::begin(entries), std::end(entries)};
    }
    std::vector<std::uint8_t> Huffman(bool ac, int table) {
        const JHUFF_TBL& from =
            *(ac ? compressor.ac_huff_tbl_ptrs[table] : compressor.dc_huff_tbl_ptrs[table]);
        std::vector<std::uint8_t> bytes(from.bits + 1, from.bits + 17);
        std::size_t symbols = 0;
        for (int i = 1; i <= 16; ++i) symbols += from.bits[i];
        bytes.insert(bytes.end(), from.huffval, from.huffval + symbols);
        return bytes;
    }

   private:
    jpeg_compress_struct compressor{};
    jpeg_error_mgr errors{};
};

// RFC 2435 scales as libjpeg does, except that 99 is the highest quality.
TEST(JpegTables, AgreeWithAnIndependentSource) {
    CReference reference;
    for (int quality = 0; quality < 128; ++quality) {
        SCOPED_TRACE(quality);
        QuantTable tables[2];
        MakeTables(static_cast<std::uint8_t>(quality), tables[0], tables[1]);
        for (int table = 0; table < 2; ++table) {
            EXPECT_EQ(std::vector<int>(tables[table], tables[table] + 64),
                      reference.Quantizer(table, std::min(quality, 99)));
        }
    }
}

void Append(std::vector<std::uint8_t>& to, std::initializer_list<int> bytes) {
    for (const int byte : bytes) to.push_back(static_cast<std::uint8_t>(byte));
}

std::vector<std::uint8_t> ExpectedHeaders(const SJpegPicture& picture, int sampling,
                                          const QuantTable& lqt, const QuantTable& cqt) {
    CReference reference;
    std::vector<std::uint8_t> bytes;
    Append(bytes, {0xFF, 0xD8, 0xFF, 0xDB, 0, 67, 0});
    bytes.insert(bytes.end(), lqt, lqt + 64);
    Append(bytes, {0xFF, 0xDB, 0, 67, 1});
    bytes.insert(bytes.end(), cqt, cqt + 64);
    if (picture.restartInterval != 0) {
        Append(bytes, {0xFF, 0xDD, 0, 4, picture.restartInterval >> 8, picture.restartInterval});
    }
    const int width = picture.width * 8;
    const int height = picture.height * 8;
    Append(bytes, {0xFF, 0xC0, 0, 17, 8, height >> 8, height, width >> 8, width, 3});
    Append(bytes, {0, sampling, 0, 1, 0x11, 1, 2, 0x11, 1});
    for (int table = 0; table < 2; ++table) {
        for (const bool ac : {false, true}) {
            const auto huffman = reference.Huffman(ac, table);
            Append(bytes,
                   {0xFF, 0xC4, 0, static_cast<int>(huffman.size() + 3), (ac ? 0x10 : 0) | table});
            bytes.insert(bytes.end(), huffman.begin(), huffman.end());
        }
    }
    Append(bytes, {0xFF, 0xDA, 0, 12, 3, 0, 0, 1, 0x11, 2, 0x11, 0, 63, 0});
    return bytes;
}

TEST(JpegHeaders, AgreeWithAnIndependentSourceByteForByte) {
    struct {
        SJpegPicture picture;
        int sampling;
        std::uint32_t length;
    } const cases[] = {{{0, 80, 60, 0}, 0x21, 605},
                       {{1, 255, 1, 0}, 0x22, 605},
                       {{2, 1, 255, 0}, 0x22, 605},
                       {{128, 80, 60, 1}, 0x22, 611},
                       {{0, 80, 60, 0x0102}, 0x21, 611}};
    QuantTable lqt;
    QuantTable cqt;
    MakeTables(35, lqt, cqt);
    for (const auto& row : cases) {
        std::vector<std::uint8_t> made(2048, 0xEE);
        EXPECT_EQ(MakeHeaders(made.data(), row.picture, lqt, cqt), row.length);
        EXPECT_EQ(made[row.length], 0xEE) << "not a byte more";
        made.resize(row.length);
        EXPECT_EQ(made, ExpectedHeaders(row.picture, row.sampling, lqt, cqt));
    }
}

}  // namespace
