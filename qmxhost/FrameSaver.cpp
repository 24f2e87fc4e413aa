#include "FrameSaver.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "FrameDecoders.h"
#include "PixelTypeNames.h"
#include "Report.h"

namespace qmxhost {
namespace {

std::string ExtensionOf(const qmx::SGuid& type) {
    if (type == jlsType) return ".jls";
    return type == jpegType ? ".jpg" : ".raw";
}

[[noreturn]] void FailToDecode(const SFrame& frame) {
    throw CFailure(EExit::Failed, "frame " + std::to_string(frame.arrival) +
                                      " can't be decoded; --as native saves it as it came");
}

/// Flushes each frame, so that a reader at the other end of a pipe sees it live.
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
      palette(FindPalette(options.palette)),
      extension(options.asPng ? ".png" : ExtensionOf(format.pixelType)) {
    if (target == standardOutput) return;
    std::error_code error;
    std::filesystem::create_directories(target, error);
    if (error) {
        throw CFailure(EExit::Failed, "can't make folder " + target + ": " + error.message());
    }
}

void CFrameSaver::Save(const SFrame& frame) {
    if (asPng ? WritePicture(frame) : WriteNative(frame)) {
        ++count;
        return;
    }
    const bool toOutput = target == standardOutput;
    const std::string where = toOutput ? "standard output" : FileName(frame.arrival);
    throw CFailure(
        EExit::Failed,
        "can't write frame " + std::to_string(frame.arrival) + " to " + where +
            (toOutput ? "; is its reader gone?" : "; is there space, and the right to?"));
}

std::string CFrameSaver::FileName(std::uint64_t number) const {
    char name[32];
    std::snprintf(name, sizeof(name), "frame-%06llu", static_cast<unsigned long long>(number));
    return (std::filesystem::path(target) / (name + extension)).string();
}

bool CFrameSaver::WriteNative(const SFrame& frame) const {
    if (target == standardOutput) return WriteToOutput(frame.bytes);
    std::ofstream file(FileName(frame.arrival), std::ios::binary);
    file.write(reinterpret_cast<const char*>(frame.bytes.data()),
               static_cast<std::streamsize>(frame.bytes.size()));
    file.close();  // what a full disk refuses may show only here
    return !file.fail();
}

bool CFrameSaver::WritePicture(const SFrame& frame) const {
    if (type == jpegType) {
        const auto picture = DecodeJpeg(frame.bytes, EJpegForm::Colour);
        if (!picture) FailToDecode(frame);
        return WritePng(FileName(frame.arrival),
                        {picture->width, picture->height, picture->samples});
    }
    if (type == jlsType) {
        const auto raw = DecodeJpegLs(frame.bytes);
        if (!raw) FailToDecode(frame);
        return WriteGrey(frame, RawPicture(raw->bytes, raw->width));
    }
    // The width is the one asked for: a raw frame says nothing of its own size.
    return WriteGrey(frame, RawPicture(frame.bytes, width));
}

bool CFrameSaver::WriteGrey(const SFrame& frame, SGreyPicture picture) const {
    StretchContrast(picture);
    return WritePng(FileName(frame.arrival), picture, palette ? &*palette : nullptr);
}

}  // namespace qmxhost
