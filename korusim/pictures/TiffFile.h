/// Reads grey TIFF and BigTIFF files of any number of pages. The functions throw
/// `std::runtime_error` with the reason of a failure, which does not name the file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>

#include "CameraSettings.h"

namespace korusim {

/// Receives the file offset and the size of a page.
using PageVisitor = std::function<void(std::uint64_t offset, SPictureSize size)>;

/// Calls a function for each page in order. Each page has 8 or 16 bits of grey, and the file
/// contains all its data. Reads only the directories of the pages.
void ForEachTiffPage(const std::filesystem::path& file, const PageVisitor& visit);
/// Decodes the page at an offset, which has this size. Values of 8 bits are not scaled.
void ReadTiffPage(const std::filesystem::path& file, std::uint64_t offset, SPictureSize size,
                  std::span<std::uint16_t> picture);

}  // namespace korusim
