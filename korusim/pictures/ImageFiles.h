/// The user's own pictures: the PNG and TIFF files of a folder, or one such file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

#include "CameraSettings.h"
#include "PictureSource.h"

namespace korusim {

/// Plays the pictures in order, again and again. It keeps only the names of the files and 16 bytes
/// per picture; each picture is read and decoded when its turn comes.
class CImageFiles : public CPictureSource {
   public:
    /// Checks the headers of all pictures. `path` is a file, or a folder whose files with the
    /// endings .png, .tif and .tiff are taken in the order of the bytes of their names, except
    /// hidden ones. Throws `std::runtime_error`, whose text names the file.
    explicit CImageFiles(const std::filesystem::path& path);

    [[nodiscard]] SPictureSize size() const noexcept { return pictureSize; }
    void Render(double seconds, std::uint64_t frame,
                std::span<std::uint16_t> picture) const override;
    [[nodiscard]] SGreyRange range() const noexcept override { return greyRange; }
    [[nodiscard]] bool slow() const noexcept override { return true; }

   private:
    struct SPicture {
        std::uint64_t page;  ///< file offset of a page of a TIFF file; 0 in a PNG file
        std::uint32_t file;  ///< index into `files`
    };

    void AddFile(const std::filesystem::path& file);
    void AddPicture(std::uint64_t page, SPictureSize size);

    std::vector<std::filesystem::path> files;
    std::vector<SPicture> pictures;
    SPictureSize pictureSize;
    SGreyRange greyRange;
};

}  // namespace korusim
