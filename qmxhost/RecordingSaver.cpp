#include "RecordingSaver.h"

#include <filesystem>
#include <system_error>

#include "Output.h"
#include "Path.h"

namespace qmxhost {
namespace {

/// Returns the path, unless a file of that name must not be overwritten.
const std::filesystem::path& Allowed(const SSaveOptions& options) {
    std::error_code error;
    if (!options.overwrite && std::filesystem::is_regular_file(options.target, error)) {
        throw CFailure(EExit::Failed, "file " + platform::Utf8Text(options.target) +
                                          " exists; name another file, or replace it with "
                                          "--overwrite");
    }
    return options.target;
}

}  // namespace

CRecordingSaver::CRecordingSaver(const SSaveOptions& options,
                                 const qmx::cam::IDevice::SFormat& format,
                                 const std::string& cameraAddress)
    : path(Allowed(options)),
      recorder(path, {cameraAddress, format.width, format.height, format.pixelType}) {
    if (!recorder.error().empty()) {
        throw CFailure(EExit::Failed, "cannot create recording " + platform::Utf8Text(path) + ": " +
                                          recorder.error() +
                                          "; --as tiff needs the name of a file");
    }
}

ESaved CRecordingSaver::Save(const frames::SFrame& frame) {
    switch (recorder.Add(frame)) {
        case frames::ERecorded::Done:
            return ESaved::Saved;
        case frames::ERecorded::Empty:
            return ESaved::Empty;
        case frames::ERecorded::Undecodable:
            return ESaved::Undecodable;
        case frames::ERecorded::Failed:
            break;
    }
    throw CFailure(EExit::Failed,
                   "cannot write frame " + std::to_string(frame.arrival.number) + " to recording " +
                       platform::Utf8Text(path) + ": " + recorder.error() + "; the " +
                       std::to_string(recorder.frameCount()) + " frames before it are saved");
}

}  // namespace qmxhost
