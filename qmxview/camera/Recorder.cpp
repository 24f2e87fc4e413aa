#include "Recorder.h"

#include <chrono>
#include <exception>

namespace qmxview {

CRecorder::CRecorder(const std::filesystem::path& file, const frames::SRecordedStream& stream)
    : path(file), recording(file, stream) {
    if (!recording.error().empty()) {
        state.error = "cannot create " + path.string() + ": " + recording.error();
        state.finished = true;
        return;
    }
    waiting.Reserve(std::size_t{stream.width} * stream.height * 2);
    writer = std::thread([this] { Run(); });
}

CRecorder::~CRecorder() {
    Finish();
    if (writer.joinable()) writer.join();
}

void CRecorder::Push(std::span<const std::uint8_t> frame, const frames::SArrival& arrival) {
    bool kept = false;
    try {
        kept = waiting.Push(frame, arrival);
    } catch (const std::bad_alloc&) {
        // Counted below. No exception may reach the plug-in's thread.
    }
    if (kept) return;
    const std::lock_guard guard(lock);
    if (!state.finished) ++state.notKept;
}

SRecorderState CRecorder::State() const {
    const std::lock_guard guard(lock);
    return state;
}

void CRecorder::Run() {
    using namespace std::chrono_literals;
    bool good = true;
    while (good) {
        // Read before the queue: a frame pushed after it does not have to be waited for.
        const bool last = finishing;
        const frames::SFrame* const frame = waiting.Front(last ? 0ms : 20ms);
        if (frame != nullptr) {
            good = Write(*frame);
            waiting.Pop();
        } else if (last) {
            break;
        }
    }
    const std::lock_guard guard(lock);
    state.finished = true;
}

bool CRecorder::Write(const frames::SFrame& frame) {
    auto result = frames::ERecorded::Undecodable;
    try {
        result = recording.Add(frame);
    } catch (const std::exception&) {
        // Memory is short; the next frame may be recorded.
    }
    const std::lock_guard guard(lock);
    if (result == frames::ERecorded::Done) {
        ++state.recorded;
    } else if (result != frames::ERecorded::Failed) {
        ++state.notKept;
    } else {
        state.error = "recording to " + path.string() + " has ended: " + recording.error() +
                      "; the " + std::to_string(state.recorded) + " frames before are saved";
    }
    return result != frames::ERecorded::Failed;
}

}  // namespace qmxview
