#include "ShellFrames.h"

#include <zlib.h>

#include <new>
#include <thread>

namespace qmxhost {

void CShellFrames::OnFrame(void* context, const std::uint8_t* frame,
                           std::uint32_t length) noexcept {
    auto& self = *static_cast<CShellFrames*>(context);
    const std::int64_t time = self.block;
    if (time > 0) std::this_thread::sleep_for(std::chrono::milliseconds(time));
    try {
        self.Take({frame, length});
    } catch (const std::bad_alloc&) {
        // The frame is not counted; no exception may reach the plug-in's thread.
    }
}

void CShellFrames::Take(std::span<const std::uint8_t> frame) {
    const auto checksum = static_cast<std::uint32_t>(::crc32_z(0, frame.data(), frame.size()));
    {
        const std::lock_guard guard(lock);
        lastFrame.assign(frame.begin(), frame.end());
        records.push_back({static_cast<std::uint32_t>(frame.size()), checksum});
        if (records.size() > remembered) records.pop_front();
        ++number;
    }
    arrived.notify_all();
}

void CShellFrames::Clear() {
    const std::lock_guard guard(lock);
    number = 0;
    records.clear();
    lastFrame.clear();
}

bool CShellFrames::WaitFor(std::uint64_t wanted, std::chrono::milliseconds limit) {
    std::unique_lock guard(lock);
    return arrived.wait_for(guard, limit, [&] { return number >= wanted; });
}

std::uint64_t CShellFrames::count() const {
    const std::lock_guard guard(lock);
    return number;
}

SFrameList CShellFrames::Frames() const {
    const std::lock_guard guard(lock);
    return {number, {records.begin(), records.end()}};
}

std::vector<std::uint8_t> CShellFrames::LastFrame() const {
    const std::lock_guard guard(lock);
    return lastFrame;
}

}  // namespace qmxhost
