#include "Recording.h"

#include <tiffio.h>

#include <array>
#include <cstdio>

namespace frames {
namespace {

/// A time of day in UTC.
struct SUtc {
    int year, month, day, hour, minute, second, microsecond;
};

SUtc Utc(std::chrono::system_clock::time_point time) {
    using namespace std::chrono;
    const auto days = floor<std::chrono::days>(time);
    const year_month_day date(days);
    const hh_mm_ss clock(floor<microseconds>(time - days));
    return {static_cast<int>(date.year()),
            static_cast<int>(static_cast<unsigned>(date.month())),
            static_cast<int>(static_cast<unsigned>(date.day())),
            static_cast<int>(clock.hours().count()),
            static_cast<int>(clock.minutes().count()),
            static_cast<int>(clock.seconds().count()),
            static_cast<int>(clock.subseconds().count())};
}

/// Returns a time in the form of the tag DateTime.
std::string DateTimeText(std::chrono::system_clock::time_point time) {
    const SUtc utc = Utc(time);
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d:%02d:%02d %02d:%02d:%02d", utc.year, utc.month,
                  utc.day, utc.hour, utc.minute, utc.second);
    return text.data();
}

}  // namespace

/// The functions through which the TIFF library accesses the file.
struct CRecording::SCallbacks {
    static STarget& Of(thandle_t target) { return *static_cast<STarget*>(target); }
    static std::span<std::uint8_t> Bytes(void* data, tmsize_t size) {
        return {static_cast<std::uint8_t*>(data), static_cast<std::size_t>(size)};
    }
    static tmsize_t Read(thandle_t target, void* data, tmsize_t size) {
        STarget& to = Of(target);
        const std::size_t count = to.file.Read(to.position, Bytes(data, size));
        to.position += count;
        return static_cast<tmsize_t>(count);
    }
    static tmsize_t Write(thandle_t target, void* data, tmsize_t size) {
        STarget& to = Of(target);
        try {
            to.file.Write(to.position, Bytes(data, size));
        } catch (const std::bad_alloc&) {
            return -1;  // no exception may pass through the library
        }
        to.position += static_cast<std::uint64_t>(size);
        return size;
    }
    static toff_t Seek(thandle_t target, toff_t offset, int whence) {
        STarget& to = Of(target);
        to.position = offset;
        if (whence == SEEK_END) to.position += to.file.size();
        return to.position;
    }
    static toff_t Size(thandle_t target) { return Of(target).file.size(); }
    static int Close(thandle_t) { return 0; }
};

void CRecording::SClose::operator()(tiff* open) const { TIFFClose(open); }

CRecording::CRecording(const std::filesystem::path& file) : target{CPagedFile(file), 0} {
    if (!error().empty()) return;
    // The library reports errors to standard error otherwise; `error` has the reason.
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
    handle.reset(TIFFClientOpen("recording", "w8m", &target, SCallbacks::Read, SCallbacks::Write,
                                SCallbacks::Seek, SCallbacks::Close, SCallbacks::Size, nullptr,
                                nullptr));
    // The header goes first, without a link, so that a page is linked only when it is complete.
    if (handle != nullptr) (void)target.file.Commit();
}

CRecording::~CRecording() = default;

bool CRecording::Add(const SPage& page) {
    if (handle == nullptr || !error().empty()) return false;
    TIFF* const tiff = handle.get();
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, page.height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, page.bitsPerSample);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, page.samplesPerPixel);
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                 page.samplesPerPixel == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, page.height);
    TIFFSetField(tiff, TIFFTAG_DATETIME, DateTimeText(page.time).c_str());
    TIFFSetField(tiff, TIFFTAG_IMAGEDESCRIPTION, page.description.c_str());
    const auto size = static_cast<tmsize_t>(page.bytes.size());
    // The library only reads the bytes: they have the byte order of this machine already.
    auto* const bytes = const_cast<std::uint8_t*>(page.bytes.data());
    if (TIFFWriteEncodedStrip(tiff, 0, bytes, size) != size || TIFFWriteDirectory(tiff) == 0 ||
        !target.file.Commit()) {
        return false;
    }
    ++count;
    return true;
}

std::string UtcText(std::chrono::system_clock::time_point time) {
    const SUtc utc = Utc(time);
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", utc.year,
                  utc.month, utc.day, utc.hour, utc.minute, utc.second, utc.microsecond);
    return text.data();
}

}  // namespace frames
