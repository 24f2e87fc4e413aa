#include "FrameRecorder.h"

#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>
#include <variant>

#include "Picture.h"
#include "PixelTypeNames.h"

namespace frames {
namespace {

SPage PageOf(const SGreyPicture& picture) {
    return {picture.width,
            picture.height,
            1,
            16,
            std::span(reinterpret_cast<const std::uint8_t*>(picture.pixels.data()),
                      picture.pixels.size() * sizeof(std::uint16_t)),
            {},
            {}};
}

SPage PageOf(const SColourPicture& picture) {
    return {picture.width, picture.height, 3, 8, picture.samples, {}, {}};
}

std::string Description(const SArrival& arrival, const SRecordedStream& stream) {
    return nlohmann::ordered_json{
        {"frame", arrival.number},
        {"utc", UtcText(arrival.utc)},
        {"elapsed", arrival.elapsed},
        {"camera", stream.camera},
        {"format", std::to_string(stream.width) + "x" + std::to_string(stream.height) + " " +
                       TypeName(stream.pixelType)}}
        .dump();
}

}  // namespace

CFrameRecorder::CFrameRecorder(const std::filesystem::path& file, SRecordedStream recordedStream)
    : path(file), stream(std::move(recordedStream)), recording(file) {}

CFrameRecorder::~CFrameRecorder() {
    // Nothing was created if the file is a folder or its folder does not exist.
    std::error_code ignored;
    if (frameCount() == 0 && std::filesystem::is_regular_file(path, ignored)) {
        std::filesystem::remove(path, ignored);
    }
}

ERecorded CFrameRecorder::Add(const SFrame& frame) {
    const auto picture = DecodePicture(frame.bytes, stream.pixelType, stream.width);
    if (!picture) return frame.bytes.empty() ? ERecorded::Empty : ERecorded::Undecodable;
    SPage page = std::visit([](const auto& each) { return PageOf(each); }, *picture);
    page.time = frame.arrival.utc;
    page.description = Description(frame.arrival, stream);
    return recording.Add(page) ? ERecorded::Done : ERecorded::Failed;
}

}  // namespace frames
