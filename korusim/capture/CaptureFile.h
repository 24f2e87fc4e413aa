/// A pcap or pcapng file, read by libpcap.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "FrameSource.h"

namespace korusim {

class CCaptureFile : public CFrameSource {
   public:
    /// Opens a file at its first frame. Throws `std::runtime_error` with the reason of a failure if
    /// it is not a capture, or one whose link type is not supported.
    explicit CCaptureFile(const std::filesystem::path& file);
    CCaptureFile(CCaptureFile&&) noexcept;
    CCaptureFile& operator=(CCaptureFile&&) noexcept;
    ~CCaptureFile() override;

    /// A file that was cut short ends with its last whole frame.
    [[nodiscard]] std::optional<SCapturedFrame> Next() override;
    /// Returns what is wrong with the file after the last frame, or an empty text.
    [[nodiscard]] const std::string& damage() const noexcept { return damageText; }

   private:
    struct SPcap;
    std::unique_ptr<SPcap> pcap;
    std::string damageText;
};

}  // namespace korusim
