#include "RecordingSaver.h"

#include <filesystem>
#include <system_error>
#include <variant>

#include "Output.h"
#include "Picture.h"
#include "PixelTypeNames.h"

namespace qmxhost {
namespace {

/// Returns the name, unless a file of that name must not be overwritten.
const std::string& Allowed(const SSaveOptions& options) {
    std::error_code error;
    if (!options.overwrite && std::filesystem::is_regular_file(options.target, error)) {
        throw CFailure(EExit::Failed, "file " + options.target +
                                          " exists; name another file, or replace it with "
                                          "--overwrite");
    }
    return options.target;
}

frames::SPage PageOf(const frames::SGreyPicture& picture) {
    return {picture.width,
            picture.height,
            1,
            16,
            std::span(reinterpret_cast<const std::uint8_t*>(picture.pixels.data()),
                      picture.pixels.size() * sizeof(std::uint16_t)),
            {},
            {}};
}

frames::SPage PageOf(const frames::SColourPicture& picture) {
    return {picture.width, picture.height, 3, 8, picture.samples, {}, {}};
}

}  // namespace

CRecordingSaver::CRecordingSaver(const SSaveOptions& options,
                                 const qmx::cam::IDevice::SFormat& streamFormat,
                                 const std::string& cameraAddress)
    : name(Allowed(options)), format(streamFormat), camera(cameraAddress), recording(name) {
    if (!recording.error().empty()) {
        throw CFailure(EExit::Failed, "cannot create recording " + name + ": " + recording.error() +
                                          "; --as tiff needs the name of a file");
    }
}

CRecordingSaver::~CRecordingSaver() {
    std::error_code ignored;
    if (recording.pages() == 0) std::filesystem::remove(name, ignored);
}

ESaved CRecordingSaver::Save(const frames::SFrame& frame) {
    const auto picture = frames::DecodePicture(frame.bytes, format.pixelType, format.width);
    if (!picture) return frame.bytes.empty() ? ESaved::Empty : ESaved::Undecodable;
    frames::SPage page = std::visit([](const auto& each) { return PageOf(each); }, *picture);
    page.time = frame.arrival.utc;
    page.description =
        Json{{"frame", frame.arrival.number},
             {"utc", frames::UtcText(frame.arrival.utc)},
             {"elapsed", frame.arrival.elapsed},
             {"camera", camera},
             {"format", std::to_string(format.width) + "x" + std::to_string(format.height) + " " +
                            frames::TypeName(format.pixelType)}}
            .dump();
    if (recording.Add(page)) return ESaved::Saved;
    throw CFailure(EExit::Failed, "cannot write frame " + std::to_string(frame.arrival.number) +
                                      " to recording " + name + ": " + recording.error() +
                                      "; the " + std::to_string(recording.pages()) +
                                      " frames before it are saved");
}

}  // namespace qmxhost
