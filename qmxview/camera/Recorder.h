/// Records a stream while it is shown.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <span>
#include <string>
#include <thread>

#include "FrameQueue.h"
#include "FrameRecorder.h"

namespace qmxview {

struct SRecorderState {
    std::uint64_t recorded = 0;
    std::uint64_t notKept = 0;  ///< came faster than the disk could take them, or were undecodable
    std::string error;          ///< why the recording has ended by itself; empty if it has not
    bool finished = false;      ///< everything is written; the destructor does not wait
};

/// A recording with a thread that writes it, so that a slow disk delays neither the receiver nor
/// the screen.
class CRecorder {
   public:
    /// Starts the thread, which creates the file. If that fails, the state contains the error.
    CRecorder(const std::filesystem::path& file, const frames::SRecordedStream& stream);
    /// Waits until everything is written.
    ~CRecorder();
    CRecorder(const CRecorder&) = delete;
    CRecorder& operator=(const CRecorder&) = delete;

    /// Copies a frame for the writing thread without waiting for it. Called by one thread.
    void Push(std::span<const std::uint8_t> frame, const frames::SArrival& arrival);
    /// Ends the recording after the frames that are waiting. Returns at once.
    void Finish() noexcept { finishing = true; }
    [[nodiscard]] SRecorderState State() const;
    [[nodiscard]] const std::filesystem::path& file() const noexcept { return path; }

   private:
    void Run();
    void WriteAll();
    [[nodiscard]] bool Write(frames::CFrameRecorder& recording, const frames::SFrame& frame);
    void Fail(const std::string& error);

    const std::filesystem::path path;
    const frames::SRecordedStream stream;
    frames::CFrameQueue waiting;
    mutable std::mutex lock;  // guards `state`
    SRecorderState state;
    std::atomic<bool> finishing{false};
    std::thread writer;
};

}  // namespace qmxview
