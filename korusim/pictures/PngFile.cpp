#include "PngFile.h"

#include <png.h>

#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "BigEndian.h"
#include "Path.h"
#include "PictureLimits.h"

namespace korusim {
namespace {

struct SClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePointer = std::unique_ptr<std::FILE, SClose>;

/// Owns the state of libpng for one picture and contains its jumps. A step returns false if libpng
/// reported an error. No object within a step may have a destructor.
class CPngReader {
   public:
    explicit CPngReader(std::FILE* opened)
        : file(opened),
          png(png_create_read_struct(PNG_LIBPNG_VER_STRING, this, JumpBack, Ignore)),
          info(png != nullptr ? png_create_info_struct(png) : nullptr) {
        if (info == nullptr) throw std::bad_alloc();
    }
    CPngReader(const CPngReader&) = delete;
    CPngReader& operator=(const CPngReader&) = delete;
    ~CPngReader() { png_destroy_read_struct(&png, &info, nullptr); }

    [[nodiscard]] bool ReadHeader() {
        if (setjmp(png_jmpbuf(png)) != 0) return false;
        png_init_io(png, file);
        png_read_info(png, info);
        return true;
    }
    [[nodiscard]] bool ReadRows(png_bytepp rows) {
        if (setjmp(png_jmpbuf(png)) != 0) return false;
        png_read_image(png, rows);
        png_read_end(png, nullptr);
        return true;
    }
    [[nodiscard]] SPictureSize Size() const {
        return CheckPictureSize(png_get_image_width(png, info), png_get_image_height(png, info));
    }
    [[nodiscard]] int bitDepth() const { return png_get_bit_depth(png, info); }
    [[nodiscard]] bool grey() const {
        return png_get_color_type(png, info) == PNG_COLOR_TYPE_GRAY &&
               png_get_valid(png, info, PNG_INFO_tRNS) == 0;
    }
    [[nodiscard]] std::size_t rowBytes() const { return png_get_rowbytes(png, info); }
    [[noreturn]] void Fail() const { throw std::runtime_error(reason.data()); }

   private:
    static void JumpBack(png_structp png, png_const_charp text) {
        auto& reader = *static_cast<CPngReader*>(png_get_error_ptr(png));
        std::snprintf(reader.reason.data(), reader.reason.size(), "%s", text);
        png_longjmp(png, 1);
    }
    static void Ignore(png_structp, png_const_charp) {}

    std::FILE* file;
    std::array<char, 128> reason{};
    png_structp png;
    png_infop info;
};

FilePointer Open(const std::filesystem::path& file) {
    FilePointer opened(platform::OpenFile(file, "rb"));
    if (!opened) throw std::runtime_error(std::strerror(errno));
    return opened;
}

/// Reads the header and checks that the format is one that a camera can send.
void ReadGreyHeader(CPngReader& reader) {
    if (!reader.ReadHeader()) reader.Fail();
    if (!reader.grey()) {
        throw std::runtime_error(
            "the picture has colours or transparency; convert it to grey without alpha");
    }
    if (reader.bitDepth() < 8) {
        throw std::runtime_error("the picture has fewer than 8 bits per pixel; use 8 or 16");
    }
}

/// Returns true if the file contains its last chunk. Without one the file has been cut short, which
/// libpng would notice only after decoding.
bool IsWhole(const std::filesystem::path& file) {
    constexpr std::streamoff signatureBytes = 8;
    constexpr std::streamoff checksumBytes = 4;
    std::ifstream stream(file, std::ios::binary | std::ios::ate);
    const std::streamoff end = stream.tellg();
    std::array<char, 8> head{};  // length and type of a chunk
    for (std::streamoff at = signatureBytes; at < end;) {
        if (!stream.seekg(at) || !stream.read(head.data(), head.size())) return false;
        at += static_cast<std::streamoff>(head.size()) + checksumBytes +
              bigendian::Get32(reinterpret_cast<const std::uint8_t*>(head.data()));
        if (std::string_view(&head[4], 4) == "IEND") return at <= end;
    }
    return false;
}

}  // namespace

SPictureSize ReadPngSize(const std::filesystem::path& file) {
    const FilePointer opened = Open(file);
    CPngReader reader(opened.get());
    ReadGreyHeader(reader);
    if (!IsWhole(file)) throw std::runtime_error("the file is cut short");
    return reader.Size();
}

void ReadPng(const std::filesystem::path& file, SPictureSize size,
             std::span<std::uint16_t> picture) {
    const FilePointer opened = Open(file);
    CPngReader reader(opened.get());
    ReadGreyHeader(reader);
    if (reader.Size() != size) throw std::runtime_error("the size of the picture has changed");
    std::vector<std::uint8_t> bytes(reader.rowBytes() * size.height);
    std::vector<png_bytep> rows(size.height);
    for (std::size_t y = 0; y < rows.size(); ++y) rows[y] = &bytes[y * reader.rowBytes()];
    if (!reader.ReadRows(rows.data())) reader.Fail();
    const bool wide = reader.bitDepth() == 16;
    for (std::size_t i = 0; i < picture.size(); ++i) {
        picture[i] = wide ? bigendian::Get16(&bytes[2 * i]) : bytes[i];
    }
}

}  // namespace korusim
