#include "JpegEncoder.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "BigEndian.h"
#include "FrameStamp.h"

// After <cstdio>, which it needs but does not include.
#include <jpeglib.h>

namespace korusim {
namespace {

constexpr std::size_t tableEntries = DCTSIZE2;

/// For each entry in zigzag order, its index in row order (T.81, figure A.6).
constexpr std::array<std::uint8_t, tableEntries> zigzag{
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

struct SRgb {
    float red;
    float green;
    float blue;
};
/// Colours at equal distances from cold to hot. The ends are black and white, because the stamp is
/// drawn in them.
constexpr std::array<SRgb, 7> colourStops{{{0, 0, 0},
                                           {40, 0, 110},
                                           {130, 10, 150},
                                           {205, 45, 95},
                                           {240, 110, 20},
                                           {255, 195, 45},
                                           {255, 255, 255}}};

using YccPixel = std::array<JSAMPLE, 3>;
using YccPalette = std::array<YccPixel, 256>;

/// Luminance and colour differences as JFIF defines them.
YccPixel ToYcc(SRgb colour) {
    const float y = 0.299F * colour.red + 0.587F * colour.green + 0.114F * colour.blue;
    const auto sample = [](float value) {
        return static_cast<JSAMPLE>(std::lround(std::clamp(value, 0.0F, 255.0F)));
    };
    return {sample(y), sample(128 + 0.564F * (colour.blue - y)),
            sample(128 + 0.713F * (colour.red - y))};
}

YccPalette MakePalette() {
    YccPalette palette;
    constexpr float steps = palette.size() - 1;
    for (std::size_t i = 0; i < palette.size(); ++i) {
        const float along = static_cast<float>(i) / steps * (colourStops.size() - 1);
        const auto stop = std::min(static_cast<std::size_t>(along), colourStops.size() - 2);
        const float part = along - static_cast<float>(stop);
        const SRgb& from = colourStops[stop];
        const SRgb& to = colourStops[stop + 1];
        palette[i] =
            ToYcc({std::lerp(from.red, to.red, part), std::lerp(from.green, to.green, part),
                   std::lerp(from.blue, to.blue, part)});
    }
    return palette;
}

/// A compressor of libjpeg. On an error it ends the process with a message; only a mistake in this
/// program could cause one.
class CCompressor {
   public:
    CCompressor() {
        jpeg.err = jpeg_std_error(&errors);
        jpeg_create_compress(&jpeg);
        jpeg.input_components = 3;
        jpeg.in_color_space = JCS_YCbCr;
        jpeg_set_defaults(&jpeg);
    }
    CCompressor(const CCompressor&) = delete;
    CCompressor& operator=(const CCompressor&) = delete;
    ~CCompressor() { jpeg_destroy_compress(&jpeg); }

    jpeg_compress_struct jpeg{};

   private:
    jpeg_error_mgr errors{};
};

JpegTables StandardTables(int quality) {
    const int scale = quality < 50 ? 5000 / quality : 200 - 2 * quality;
    CCompressor compressor;
    jpeg_set_linear_quality(&compressor.jpeg, scale, TRUE);
    JpegTables tables;
    for (std::size_t i = 0; i < tables.size(); ++i) {
        const JQUANT_TBL& table = *compressor.jpeg.quant_tbl_ptrs[i / tableEntries];
        tables[i] = static_cast<std::uint8_t>(table.quantval[i % tableEntries]);  // in row order
    }
    return tables;
}

/// Rises linearly with the frequency and begins with finer steps than the standard's tables.
JpegTables OwnTables() {
    JpegTables tables;
    for (std::size_t i = 0; i < tableEntries; ++i) {
        tables[i] = static_cast<std::uint8_t>(3 + i / 2);
        tables[tableEntries + i] = static_cast<std::uint8_t>(5 + i);
    }
    return tables;
}

/// Quantises by the tables as a decoder will read them, with the entries in zigzag order.
void UseTables(jpeg_compress_struct& jpeg, const JpegTables& tables) {
    for (int which = 0; which < 2; ++which) {
        const auto entries =
            std::span(tables).subspan(static_cast<std::size_t>(which) * tableEntries, tableEntries);
        std::array<unsigned, tableEntries> rows;
        for (std::size_t i = 0; i < tableEntries; ++i) rows[zigzag[i]] = entries[i];
        jpeg_add_quant_table(&jpeg, which, rows.data(), 100, TRUE);
    }
}

/// Returns the bytes that follow the headers of a JPEG picture. The last header is that of its only
/// scan.
std::span<const std::uint8_t> ScanOf(std::span<const std::uint8_t> coded) {
    constexpr std::uint8_t startOfScan = 0xDA;
    std::size_t at = 2;  // after the start-of-image marker
    for (bool last = false; !last;) {
        last = coded[at + 1] == startOfScan;
        at += 2 + std::size_t{bigendian::Get16(&coded[at + 2])};
    }
    return coded.subspan(at);
}

struct SFree {
    void operator()(unsigned char* bytes) const { std::free(bytes); }
};

}  // namespace

JpegTables MakeJpegTables(std::uint8_t quality) {
    return SJpegSettings{.quality = quality}.tablesInBand() ? OwnTables() : StandardTables(quality);
}

struct CJpegEncoder::SState {
    SGreyRange range;
    CCompressor compressor;
    const YccPalette palette = MakePalette();
    std::vector<std::uint8_t> levels;  // grey levels, width times height
    std::vector<JSAMPLE> line;
    std::unique_ptr<unsigned char, SFree> coded;  // allocated by libjpeg
};

CJpegEncoder::CJpegEncoder(SPictureSize size, const SJpegSettings& settings, SGreyRange range)
    : state(std::make_unique<SState>()) {
    state->range = range;
    jpeg_compress_struct& jpeg = state->compressor.jpeg;
    jpeg.image_width = size.width;
    jpeg.image_height = size.height;
    jpeg.comp_info[0].h_samp_factor = 2;
    jpeg.comp_info[0].v_samp_factor = settings.subsampling == ESubsampling::Chroma420 ? 2 : 1;
    jpeg.restart_interval = settings.restartInterval;
    UseTables(jpeg, MakeJpegTables(settings.quality));
    state->levels.resize(std::size_t{size.width} * size.height);
    state->line.resize(std::size_t{size.width} * 3);
}

CJpegEncoder::CJpegEncoder(CJpegEncoder&&) noexcept = default;
CJpegEncoder& CJpegEncoder::operator=(CJpegEncoder&&) noexcept = default;
CJpegEncoder::~CJpegEncoder() = default;

std::span<const std::uint8_t> CJpegEncoder::Code(std::span<std::uint16_t> picture,
                                                 std::uint32_t number) {
    jpeg_compress_struct& jpeg = state->compressor.jpeg;
    const int black = state->range.black;
    const int white = state->range.white;
    std::ranges::transform(picture, state->levels.begin(), [=](std::uint16_t counts) {
        const int inside = std::clamp<int>(counts, black, white) - black;
        return static_cast<std::uint8_t>(inside * 255 / (white - black));
    });
    framestamp::WriteBlockStamp({state->levels, jpeg.image_width}, number);

    unsigned char* coded = nullptr;
    unsigned long codedBytes = 0;
    jpeg_mem_dest(&jpeg, &coded, &codedBytes);
    jpeg_start_compress(&jpeg, TRUE);
    for (auto level = state->levels.begin(); level != state->levels.end();) {
        for (auto to = state->line.begin(); to != state->line.end(); ++level) {
            to = std::ranges::copy(state->palette[*level], to).out;
        }
        JSAMPROW row = state->line.data();
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    state->coded.reset(coded);
    return ScanOf({coded, codedBytes});
}

}  // namespace korusim
