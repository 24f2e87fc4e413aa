#include "Recorder.h"

#include <chrono>
#include <exception>
#include <new>

#include "Path.h"

namespace qmxview {

CRecorder::CRecorder(const std::filesystem::path& file, const frames::SRecordedStream& recorded)
    : path(file), stream(recorded) {
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
    try {
        WriteAll();
    } catch (const std::exception& failure) {
        Fail(std::string("recording to ") + platform::Utf8Text(path) +
             " has ended: " + failure.what());
    }
    const std::lock_guard guard(lock);
    state.finished = true;
}

void CRecorder::Fail(const std::string& error) {
    const std::lock_guard guard(lock);
    state.error = error;
}

void CRecorder::WriteAll() {
    using namespace std::chrono_literals;
    frames::CFrameRecorder recording(path, stream);
    if (!recording.error().empty()) {
        return Fail("cannot create " + platform::Utf8Text(path) + ": " + recording.error());
    }
    for (;;) {
        // Read before the queue: a frame pushed after it does not have to be waited for.
        const bool last = finishing;
        const frames::SFrame* const frame = waiting.Front(last ? 0ms : 20ms);
        if (frame == nullptr && last) return;
        if (frame == nullptr) continue;
        if (!Write(recording, *frame)) return;
        waiting.Pop();
    }
}

/// Returns false if the recording has failed.
bool CRecorder::Write(frames::CFrameRecorder& recording, const frames::SFrame& frame) {
    auto result = frames::ERecorded::Undecodable;
    try {
        result = recording.Add(frame);
    } catch (const std::bad_alloc&) {
        // The next frame may be recorded.
    }
    if (result == frames::ERecorded::Failed) {
        Fail("recording to " + platform::Utf8Text(path) + " has ended: " + recording.error() +
             "; the " + std::to_string(recording.frameCount()) + " frames before are saved");
        return false;
    }
    const std::lock_guard guard(lock);
    ++(result == frames::ERecorded::Done ? state.recorded : state.notKept);
    return true;
}

}  // namespace qmxview
