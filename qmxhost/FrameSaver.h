/// Saves the frames of a stream: unchanged, as pictures, or as one recording.
#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "FolderSaver.h"
#include "RecordingSaver.h"
#include "SaveOptions.h"

namespace qmxhost {

/// Writes frames unchanged to standard output, each flushed, so that a program that reads the pipe
/// gets it at once.
class COutputSaver {
   public:
    [[nodiscard]] ESaved Save(const frames::SFrame& frame);
};

/// Saves frames where and how the options say, and counts them.
class CFrameSaver {
   public:
    /// Creates the folder or the file. Throws a `CFailure` if it cannot, or if that would change
    /// the frames of another run.
    CFrameSaver(const SSaveOptions& options, const qmx::cam::IDevice::SFormat& format,
                const std::string& camera);

    /// Saves a frame. Skips one that contains no picture, because the next one may. Throws a
    /// `CFailure` if it cannot be written, because the next one could not be either.
    void Save(const frames::SFrame& frame);
    [[nodiscard]] const SSaveTotals& totals() const noexcept { return sums; }

   private:
    std::variant<COutputSaver, CFolderSaver, CRecordingSaver> saver;
    SSaveTotals sums;
};

}  // namespace qmxhost
