#include "FrameSaver.h"

#include <cstdio>

#include "Output.h"

namespace qmxhost {
namespace {

using Savers = std::variant<COutputSaver, CFolderSaver, CRecordingSaver>;

Savers MakeSaver(const SSaveOptions& options, const qmx::cam::IDevice::SFormat& format,
                 const std::string& camera) {
    if (options.target == standardOutput) return Savers(std::in_place_type<COutputSaver>);
    if (options.as != ESaveAs::Tiff) {
        return Savers(std::in_place_type<CFolderSaver>, options, format);
    }
    return Savers(std::in_place_type<CRecordingSaver>, options, format, camera);
}

}  // namespace

ESaved COutputSaver::Save(const frames::SFrame& frame) {
    const auto& bytes = frame.bytes;
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() &&
        std::fflush(stdout) == 0) {
        return ESaved::Saved;
    }
    throw CFailure(EExit::Failed, "cannot write frame " + std::to_string(frame.arrival.number) +
                                      " to standard output; is the program that reads it gone, or "
                                      "the disk full?");
}

CFrameSaver::CFrameSaver(const SSaveOptions& options, const qmx::cam::IDevice::SFormat& format,
                         const std::string& camera)
    : saver(MakeSaver(options, format, camera)) {}

void CFrameSaver::Save(const frames::SFrame& frame) {
    switch (std::visit([&](auto& each) { return each.Save(frame); }, saver)) {
        case ESaved::Saved:
            ++sums.saved;
            break;
        case ESaved::Undecodable:
            ++sums.undecodable;
            break;
        case ESaved::Empty:
            ++sums.empty;
            break;
    }
}

}  // namespace qmxhost
