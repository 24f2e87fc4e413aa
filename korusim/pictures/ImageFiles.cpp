#include "ImageFiles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "Path.h"
#include "PictureLimits.h"
#include "PngFile.h"
#include "TiffFile.h"

namespace korusim {
namespace {

namespace fs = std::filesystem;

/// Most pictures of one camera: more than nine hours at 30 per second.
constexpr std::size_t maxPictures = 1'000'000;

bool IsPictureName(const fs::path& file) {
    std::string ending = platform::Utf8Text(file.extension());
    std::ranges::transform(ending, ending.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    });
    return (ending == ".png" || ending == ".tif" || ending == ".tiff") &&
           !platform::Utf8Text(file.filename()).starts_with('.');
}

[[noreturn]] void Fail(const fs::path& path, const std::string& reason) {
    throw std::runtime_error("cannot read " + platform::Utf8Text(path) + ": " + reason);
}

std::vector<fs::path> PicturesIn(const fs::path& folder) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (IsPictureName(entry->path())) files.push_back(entry->path());
    }
    if (error) Fail(folder, error.default_error_condition().message());
    if (files.empty()) Fail(folder, "the folder has no .png, .tif or .tiff file");
    std::ranges::sort(files);
    return files;
}

bool IsPng(const fs::path& file) {
    if (!fs::is_regular_file(file)) throw std::runtime_error("it is not a file");
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw std::runtime_error(std::strerror(errno));
    std::array<char, 8> head{};
    stream.read(head.data(), head.size());
    const std::string_view begin(head.data(), static_cast<std::size_t>(stream.gcount()));
    if (begin.empty()) throw std::runtime_error("the file is empty");
    if (begin == "\x89PNG\r\n\x1A\n") return true;
    if (begin.starts_with("II") || begin.starts_with("MM")) return false;
    throw std::runtime_error("the file is neither PNG nor TIFF");
}

/// Returns the range of a picture without the hundredth part of the pixels at either end: dead
/// pixels, and the stamp in a picture that came from a simulator.
SGreyRange RangeOf(std::vector<std::uint16_t> picture) {
    std::ranges::sort(picture);
    const std::size_t cut = std::max<std::size_t>(picture.size() / 100, 8);
    const std::uint16_t black = std::min<std::uint16_t>(picture[cut], 0xFFFE);
    const std::uint16_t white = picture[picture.size() - 1 - cut];
    return {black, std::max<std::uint16_t>(white, black + 1)};
}

}  // namespace

CImageFiles::CImageFiles(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) Fail(path, error.default_error_condition().message());
    if (fs::is_directory(status)) {
        for (const fs::path& file : PicturesIn(path)) AddFile(file);
    } else {
        AddFile(path);
    }
    std::vector<std::uint16_t> first(std::size_t{pictureSize.width} * pictureSize.height);
    Render(0, 0, first);
    greyRange = RangeOf(std::move(first));
}

void CImageFiles::AddFile(const fs::path& file) {
    files.push_back(file);
    try {
        if (IsPng(file)) {
            AddPicture(0, ReadPngSize(file));
        } else {
            ForEachTiffPage(
                file, [this](std::uint64_t page, SPictureSize size) { AddPicture(page, size); });
        }
    } catch (const std::runtime_error& failure) {
        Fail(file, failure.what());
    }
}

void CImageFiles::AddPicture(std::uint64_t page, SPictureSize size) {
    if (pictures.empty()) pictureSize = size;
    if (size != pictureSize) {
        throw std::runtime_error("the picture has " + SizeText(size) +
                                 " pixels, but those before it have " + SizeText(pictureSize));
    }
    if (pictures.size() == maxPictures) {
        throw std::runtime_error("there are more than " + std::to_string(maxPictures) +
                                 " pictures");
    }
    pictures.push_back({page, static_cast<std::uint32_t>(files.size() - 1)});
}

void CImageFiles::Render(double, std::uint64_t frame, std::span<std::uint16_t> picture) const {
    const SPicture& source = pictures[frame % pictures.size()];
    const fs::path& file = files[source.file];
    try {
        if (source.page == 0) {
            ReadPng(file, pictureSize, picture);
        } else {
            ReadTiffPage(file, source.page, pictureSize, picture);
        }
    } catch (const std::runtime_error& failure) {
        Fail(file, failure.what());
    }
}

}  // namespace korusim
