#include "PictureWriter.h"

#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <utility>

#include "OutputFile.h"

namespace frames {
namespace {

/// Compression level. Higher ones barely compress sensor noise better and are too slow for a live
/// stream.
constexpr int compressionLevel = 1;

/// Returns the bytes of a PNG's rows, one after the other.
struct SPngImage {
    std::uint32_t width;
    std::uint32_t height;
    int bitDepth;
    int colourType;
    std::vector<std::uint8_t> bytes;
};

SPngImage GreyImage(const SGreyPicture& picture) {
    SPngImage image{picture.width, picture.height, 16, PNG_COLOR_TYPE_GRAY, {}};
    image.bytes.reserve(picture.pixels.size() * 2);
    for (const std::uint16_t pixel : picture.pixels) {
        image.bytes.push_back(static_cast<std::uint8_t>(pixel >> 8));  // PNG is big-endian
        image.bytes.push_back(static_cast<std::uint8_t>(pixel));
    }
    return image;
}

SPngImage ColourImage(const SGreyPicture& picture, const Palette& palette) {
    SPngImage image{picture.width, picture.height, 8, PNG_COLOR_TYPE_RGB, {}};
    image.bytes.reserve(picture.pixels.size() * 3);
    for (const std::uint16_t pixel : picture.pixels) {
        const SColour& colour = palette[pixel >> 8];
        for (const auto part : {colour.red, colour.green, colour.blue}) image.bytes.push_back(part);
    }
    return image;
}

/// libpng reports errors by a jump to here: no object in this function may have a destructor.
bool Encode(std::FILE* file, png_structp png, png_infop info, const SPngImage& image,
            png_bytepp rows) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_init_io(png, file);
    png_set_compression_level(png, compressionLevel);
    png_set_IHDR(png, info, image.width, image.height, image.bitDepth, image.colourType,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_write_image(png, rows);
    png_write_end(png, info);
    return true;
}

/// The caller reports the failure; libpng would write to standard error.
void JumpBack(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void Ignore(png_structp, png_const_charp) {}

/// Owns all objects with destructors, outside the reach of libpng's jump.
bool EncodeTo(std::FILE* file, SPngImage& image) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, JumpBack, Ignore);
    if (png == nullptr) return false;
    png_infop info = png_create_info_struct(png);
    std::vector<png_bytep> rows(image.height);
    const std::size_t rowLength = image.bytes.size() / image.height;
    for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = &image.bytes[i * rowLength];
    const bool done = info != nullptr && Encode(file, png, info, image, rows.data());
    png_destroy_write_struct(&png, &info);
    return done;
}

bool WriteImage(const std::filesystem::path& file, SPngImage image) {
    COutputFile out(file);
    return out.stream() != nullptr && EncodeTo(out.stream(), image) && out.Keep();
}

}  // namespace

bool WritePng(const std::filesystem::path& file, const SGreyPicture& picture,
              const Palette* palette) {
    if (picture.pixels.empty()) return false;
    return WriteImage(file,
                      palette != nullptr ? ColourImage(picture, *palette) : GreyImage(picture));
}

bool WritePng(const std::filesystem::path& file, SColourPicture picture) {
    if (picture.samples.empty()) return false;
    return WriteImage(
        file, {picture.width, picture.height, 8, PNG_COLOR_TYPE_RGB, std::move(picture.samples)});
}

}  // namespace frames
