#include "FolderSaver.h"

#include <system_error>
#include <variant>
#include <vector>

#include "Output.h"
#include "OutputFile.h"
#include "Path.h"
#include "PictureWriter.h"
#include "PixelTypeNames.h"
#include "Recording.h"

namespace qmxhost {
namespace {

namespace fs = std::filesystem;

constexpr const char* indexName = "index.jsonl";

std::string ExtensionOf(const qmx::SGuid& type, ESaveAs as) {
    if (as == ESaveAs::Png) return ".png";
    if (type == frames::jlsType) return ".jls";
    return type == frames::jpegType ? ".jpg" : ".raw";
}

bool IsOfARun(const fs::path& file) {
    const std::string name = platform::Utf8Text(file.filename());
    return name == indexName || (name.starts_with("frame-") && name.find('.') == 12);
}

/// Removes the frames of another run, or refuses to.
void Empty(const fs::path& folder, bool overwrite) {
    std::vector<fs::path> old;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.is_regular_file() && IsOfARun(entry.path())) old.push_back(entry.path());
    }
    if (!old.empty() && !overwrite) {
        throw CFailure(EExit::Failed, "folder " + platform::Utf8Text(folder) +
                                          " contains frames of another run; name another folder, "
                                          "or replace them with --overwrite");
    }
    for (const fs::path& file : old) fs::remove(file);
}

}  // namespace

CFolderSaver::CFolderSaver(const SSaveOptions& options, const qmx::cam::IDevice::SFormat& format)
    : folder(options.target),
      as(options.as),
      type(format.pixelType),
      width(format.width),
      height(format.height),
      palette(frames::FindPalette(options.palette)),
      extension(ExtensionOf(format.pixelType, options.as)) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw CFailure(EExit::Failed, "cannot create folder " + platform::Utf8Text(folder) + ": " +
                                          error.default_error_condition().message());
    }
    Empty(folder, options.overwrite);
}

ESaved CFolderSaver::Save(const frames::SFrame& frame) {
    char name[32];
    std::snprintf(name, sizeof(name), "frame-%06llu",
                  static_cast<unsigned long long>(frame.arrival.number));
    const fs::path file = folder / (name + extension);
    ESaved result = ESaved::Saved;
    const bool written = as == ESaveAs::Png ? WritePicture(file, frame, result)
                                            : frames::WriteFile(file, frame.bytes);
    if (result != ESaved::Saved) return result;
    if (written && WriteIndex(name + extension, frame)) return ESaved::Saved;
    throw CFailure(EExit::Failed,
                   "cannot write frame " + std::to_string(frame.arrival.number) + " to " +
                       platform::Utf8Text(file) +
                       "; does the folder exist, with free space and write permission?");
}

/// Returns false if the file cannot be written. `result` becomes another one than `Saved` if the
/// frame contains no picture.
bool CFolderSaver::WritePicture(const fs::path& file, const frames::SFrame& frame,
                                ESaved& result) const {
    auto picture = frames::DecodePicture(frame.bytes, type, width);
    if (!picture) {
        result = frame.bytes.empty() ? ESaved::Empty : ESaved::Undecodable;
        return false;
    }
    if (auto* const colour = std::get_if<frames::SColourPicture>(&*picture)) {
        return frames::WritePng(file, std::move(*colour));
    }
    auto& grey = std::get<frames::SGreyPicture>(*picture);
    frames::HideStamp(grey);
    frames::StretchContrast(grey);
    return frames::WritePng(file, grey, palette ? &*palette : nullptr);
}

bool CFolderSaver::WriteIndex(const std::string& name, const frames::SFrame& frame) {
    if (index == nullptr) index.reset(platform::OpenFile(folder / indexName, "wb"));
    if (index == nullptr) return false;
    const Json line = {{"frame", frame.arrival.number},
                       {"file", name},
                       {"utc", frames::UtcText(frame.arrival.utc)},
                       {"elapsed", frame.arrival.elapsed},
                       {"width", width},
                       {"height", height},
                       {"length", frame.bytes.size()},
                       {"type", frames::TypeName(type)}};
    return std::fputs((line.dump() + '\n').c_str(), index.get()) >= 0 &&
           std::fflush(index.get()) == 0;
}

}  // namespace qmxhost
