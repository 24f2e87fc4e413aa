#include "FrameSaver.h"

#include <cstdio>
#include <filesystem>
#include <span>
#include <system_error>
#include <utility>

#include "FrameDecoders.h"
#include "Output.h"
#include "OutputFile.h"
#include "PixelTypeNames.h"

namespace qmxhost {
namespace {

std::string ExtensionOf(const qmx::SGuid& type) {
    if (type == frames::jlsType) return ".jls";
    return type == frames::jpegType ? ".jpg" : ".raw";
}

/// Flushes each frame, so that a program that reads the pipe gets it at once.
bool WriteToOutput(const std::vector<std::uint8_t>& bytes) {
    return std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() &&
           std::fflush(stdout) == 0;
}

}  // namespace

CFrameSaver::CFrameSaver(const SSaveOptions& options, const qmx::cam::IDevice::SFormat& format)
    : target(options.target),
      asPng(options.asPng),
      type(format.pixelType),
      width(format.width),
      palette(frames::FindPalette(options.palette)),
      extension(options.asPng ? ".png" : ExtensionOf(format.pixelType)) {
    if (target == standardOutput) return;
    std::error_code error;
    std::filesystem::create_directories(target, error);
    if (error) {
        throw CFailure(EExit::Failed, "cannot create folder " + target + ": " + error.message());
    }
}

void CFrameSaver::Save(const frames::SFrame& frame) {
    if (asPng) {
        SavePicture(frame);
    } else if (target == standardOutput) {
        Count(frame, WriteToOutput(frame.bytes));
    } else {
        Count(frame, frames::WriteFile(FileName(frame.arrival), frame.bytes));
    }
}

void CFrameSaver::SavePicture(const frames::SFrame& frame) {
    if (frame.bytes.empty()) {
        ++sums.empty;
    } else if (auto picture = Decode(frame)) {
        Count(frame, WritePicture(FileName(frame.arrival), *picture));
    } else {
        ++sums.undecodable;
    }
}

void CFrameSaver::Count(const frames::SFrame& frame, bool written) {
    if (written) {
        ++sums.saved;
        return;
    }
    const bool toOutput = target == standardOutput;
    throw CFailure(
        EExit::Failed,
        "cannot write frame " + std::to_string(frame.arrival) + " to " +
            (toOutput ? "standard output; is the program that reads it gone, or the disk full?"
                      : FileName(frame.arrival) +
                            "; does the folder exist, with free space and write permission?"));
}

std::string CFrameSaver::FileName(std::uint64_t number) const {
    char name[32];
    std::snprintf(name, sizeof(name), "frame-%06llu", static_cast<unsigned long long>(number));
    return (std::filesystem::path(target) / (name + extension)).string();
}

std::optional<CFrameSaver::Picture> CFrameSaver::Decode(const frames::SFrame& frame) const {
    if (type == frames::jpegType) {
        auto picture = frames::DecodeJpeg(frame.bytes, frames::EJpegForm::Colour);
        if (!picture) return std::nullopt;
        return frames::SColourPicture{picture->width, picture->height, std::move(picture->samples)};
    }
    // The requested width: a raw frame does not contain its own size.
    frames::SDecodedRaw raw{width, {}};
    if (type == frames::jlsType) {
        auto decoded = frames::DecodeJpegLs(frame.bytes);
        if (!decoded) return std::nullopt;
        raw = *std::move(decoded);
    }
    frames::SGreyPicture picture = frames::RawPicture(
        type == frames::jlsType ? std::span<const std::uint8_t>(raw.bytes) : frame.bytes,
        raw.width);
    if (picture.pixels.empty()) return std::nullopt;
    return picture;
}

bool CFrameSaver::WritePicture(const std::string& file, Picture& picture) const {
    if (auto* const colour = std::get_if<frames::SColourPicture>(&picture)) {
        return frames::WritePng(file, std::move(*colour));
    }
    auto& grey = std::get<frames::SGreyPicture>(picture);
    frames::StretchContrast(grey);
    return frames::WritePng(file, grey, palette ? &*palette : nullptr);
}

}  // namespace qmxhost
