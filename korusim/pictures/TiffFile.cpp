#include "TiffFile.h"

#include <tiffio.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "PictureLimits.h"

namespace korusim {
namespace {

/// Most bytes that libtiff may allocate at once: twice the largest picture.
constexpr tmsize_t maxAllocation = tmsize_t{4} * maxSide * maxSide;

struct SFreeOptions {
    void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

/// One open file.
class CTiffReader {
   public:
    explicit CTiffReader(const std::filesystem::path& file) {
        const std::unique_ptr<TIFFOpenOptions, SFreeOptions> options(TIFFOpenOptionsAlloc());
        if (!options) throw std::bad_alloc();
        TIFFOpenOptionsSetErrorHandlerExtR(options.get(), KeepReason, this);
        TIFFOpenOptionsSetWarningHandlerExtR(options.get(), Ignore, nullptr);
        TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), maxAllocation);
        stream.open(file, std::ios::binary);
        if (!stream) throw std::runtime_error(std::strerror(errno));
        // By functions of our own, because libtiff takes names in any language on only one system.
        tiff = TIFFClientOpenExt("picture", "rm", this, Read, Write, Seek, Close, Size, nullptr,
                                 nullptr, options.get());
        if (tiff == nullptr) Fail();
    }
    CTiffReader(const CTiffReader&) = delete;
    CTiffReader& operator=(const CTiffReader&) = delete;
    ~CTiffReader() { TIFFClose(tiff); }

    /// Goes to the next page. Returns false after the last one.
    [[nodiscard]] bool NextPage() {
        if (TIFFLastDirectory(tiff) != 0) return false;
        if (TIFFReadDirectory(tiff) == 0) Fail();
        return true;
    }
    void GoTo(std::uint64_t offset) {
        if (TIFFSetSubDirectory(tiff, offset) == 0) Fail();
    }
    [[nodiscard]] std::uint64_t offset() const { return TIFFCurrentDirOffset(tiff); }
    /// Checks that the page is a picture that a camera can send, and returns its size.
    [[nodiscard]] SPictureSize CheckPage();
    void ReadPage(SPictureSize size, std::span<std::uint16_t> picture);

   private:
    template <class Value>
    [[nodiscard]] Value Field(std::uint32_t tag) const {
        Value value{};
        TIFFGetFieldDefaulted(tiff, tag, &value);
        return value;
    }
    void CheckData() const;
    [[noreturn]] void Fail() const {
        throw std::runtime_error(reason[0] != '\0' ? reason.data() : "the file is damaged");
    }
    static int KeepReason(TIFF*, void* self, const char*, const char* format, va_list arguments) {
        auto& kept = static_cast<CTiffReader*>(self)->reason;
        std::vsnprintf(kept.data(), kept.size(), format, arguments);
        return 1;
    }
    static int Ignore(TIFF*, void*, const char*, const char*, va_list) { return 1; }

    // The operations of libtiff on the file.
    static std::ifstream& StreamOf(thandle_t self) {
        std::ifstream& stream = static_cast<CTiffReader*>(self)->stream;
        stream.clear();  // an earlier read may have reached the end
        return stream;
    }
    static tmsize_t Read(thandle_t self, void* to, tmsize_t bytes) {
        std::ifstream& stream = StreamOf(self);
        stream.read(static_cast<char*>(to), bytes);
        return static_cast<tmsize_t>(stream.gcount());
    }
    static tmsize_t Write(thandle_t, void*, tmsize_t) { return 0; }
    static toff_t Seek(thandle_t self, toff_t offset, int whence) {
        constexpr std::array origins = {std::ios::beg, std::ios::cur, std::ios::end};
        std::ifstream& stream = StreamOf(self);
        stream.seekg(static_cast<std::streamoff>(offset),
                     origins.at(static_cast<std::size_t>(whence)));
        return static_cast<toff_t>(stream.tellg());
    }
    static int Close(thandle_t) { return 0; }
    static toff_t Size(thandle_t self) {
        std::ifstream& stream = StreamOf(self);
        const auto position = stream.tellg();
        stream.seekg(0, std::ios::end);
        const auto size = static_cast<toff_t>(stream.tellg());
        stream.seekg(position);
        return size;
    }

    std::ifstream stream;
    TIFF* tiff = nullptr;
    std::array<char, 160> reason{};
};

SPictureSize CTiffReader::CheckPage() {
    const auto bits = Field<std::uint16_t>(TIFFTAG_BITSPERSAMPLE);
    const auto photometric = Field<std::uint16_t>(TIFFTAG_PHOTOMETRIC);
    if (Field<std::uint16_t>(TIFFTAG_SAMPLESPERPIXEL) != 1 ||
        (photometric != PHOTOMETRIC_MINISBLACK && photometric != PHOTOMETRIC_MINISWHITE)) {
        throw std::runtime_error(
            "the picture has colours or transparency; convert it to grey without alpha");
    }
    if ((bits != 8 && bits != 16) ||
        Field<std::uint16_t>(TIFFTAG_SAMPLEFORMAT) != SAMPLEFORMAT_UINT) {
        throw std::runtime_error("the pixels are not unsigned numbers of 8 or 16 bits");
    }
    if (TIFFIsTiled(tiff) != 0) {
        throw std::runtime_error("the picture is stored in tiles; store it in strips");
    }
    const SPictureSize size = CheckPictureSize(Field<std::uint32_t>(TIFFTAG_IMAGEWIDTH),
                                               Field<std::uint32_t>(TIFFTAG_IMAGELENGTH));
    CheckData();
    return size;
}

/// Checks that the strips lie within the file. A file that was cut short has its directories, but
/// not the data.
void CTiffReader::CheckData() const {
    const std::uint64_t fileBytes = TIFFGetSizeProc(tiff)(TIFFClientdata(tiff));
    const std::uint32_t strips = TIFFNumberOfStrips(tiff);
    for (std::uint32_t strip = 0; strip < strips; ++strip) {
        const std::uint64_t begin = TIFFGetStrileOffset(tiff, strip);
        const std::uint64_t bytes = TIFFGetStrileByteCount(tiff, strip);
        if (bytes == 0 || begin > fileBytes || bytes > fileBytes - begin) {
            throw std::runtime_error("the file is cut short");
        }
    }
}

void CTiffReader::ReadPage(SPictureSize size, std::span<std::uint16_t> picture) {
    if (CheckPage() != size) throw std::runtime_error("the size of the picture has changed");
    const bool wide = Field<std::uint16_t>(TIFFTAG_BITSPERSAMPLE) == 16;
    const bool inverted = Field<std::uint16_t>(TIFFTAG_PHOTOMETRIC) == PHOTOMETRIC_MINISWHITE;
    const std::uint16_t largest = wide ? 0xFFFF : 0xFF;
    std::vector<std::uint8_t> narrow(size.width);
    for (std::uint32_t y = 0; y < size.height; ++y) {
        const auto line = picture.subspan(std::size_t{y} * size.width, size.width);
        // libtiff converts 16-bit samples to the byte order of this machine.
        void* const to = wide ? static_cast<void*>(line.data()) : narrow.data();
        if (TIFFScanlineSize64(tiff) != size.width * (wide ? 2U : 1U)) Fail();
        if (TIFFReadScanline(tiff, to, y, 0) != 1) Fail();
        if (!wide) std::ranges::copy(narrow, line.begin());
        if (!inverted) continue;
        for (std::uint16_t& pixel : line) pixel = static_cast<std::uint16_t>(largest - pixel);
    }
}

}  // namespace

void ForEachTiffPage(const std::filesystem::path& file, const PageVisitor& visit) {
    CTiffReader reader(file);
    do {
        const SPictureSize size = reader.CheckPage();
        visit(reader.offset(), size);
    } while (reader.NextPage());
}

void ReadTiffPage(const std::filesystem::path& file, std::uint64_t offset, SPictureSize size,
                  std::span<std::uint16_t> picture) {
    CTiffReader reader(file);
    reader.GoTo(offset);
    reader.ReadPage(size, picture);
}

}  // namespace korusim
