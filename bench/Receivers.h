/// The compared receivers. Each runs in a separate process, so that its CPU time can be measured.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <new>
#include <string>

#include "PacketStream.h"

namespace bench {

enum class EReceiver {
    Plain,  ///< recvfrom and one memcpy in a loop, on the only thread of the process
    /// The same in a process with a second, idle thread, as in every host: the system then counts
    /// the users of a socket at each call.
    PlainAmongThreads,
    Plugin,     ///< the plug-in's receiver with a callback that only counts
    GStreamer,  ///< udpsrc ! rtpvrawdepay or rtpjpegdepay ! fakesink
    Ffmpeg,     ///< an SDP file, -c copy -f null
};
inline constexpr EReceiver allReceivers[] = {EReceiver::Plain, EReceiver::PlainAmongThreads,
                                             EReceiver::Plugin, EReceiver::GStreamer,
                                             EReceiver::Ffmpeg};

[[nodiscard]] const char* NameOf(EReceiver kind) noexcept;
/// Returns whether it is another program, which expects raw streams in the form of RFC 4175 and not
/// in that of these cameras.
[[nodiscard]] constexpr bool IsPeer(EReceiver kind) noexcept {
    return kind == EReceiver::GStreamer || kind == EReceiver::Ffmpeg;
}
/// Returns whether a receiver is installed and supports the stream.
[[nodiscard]] bool CanTake(EReceiver kind, const SStreamPlan& plan);

/// The processors of a receiver and its sender.
enum class EPlace {
    /// On the same processor: the receiver runs only while the sender sleeps. The next datagram is
    /// always waiting, so that only the work itself is measured.
    SameProcessor,
    /// On the other processor, as with a real network: the receiver sleeps until a datagram
    /// arrives.
    OtherProcessor,
};

/// Moves the calling thread, that of a sender, to the processor of a place.
void PlaceSender(EPlace place);

/// Returns the steady clock in nanoseconds; it is the same in all processes.
[[nodiscard]] std::int64_t Now() noexcept;

/// Sleeps until another process ends this one.
[[noreturn]] void PauseForEver();

/// A child process. The destructor ends it.
class CChild {
   public:
    /// Runs `body` in a new process on the processor of the place. The calling process must have
    /// only one thread. The new process ends when `body` returns.
    CChild(EPlace place, const std::function<void()>& body);
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;
    ~CChild();

    [[nodiscard]] std::chrono::nanoseconds cpuTime() const;
    /// Returns the resident memory in bytes.
    [[nodiscard]] std::uint64_t residentBytes() const;
    /// Returns true if the process ends by itself within 10 s.
    [[nodiscard]] bool WaitForEnd();

   private:
    pid_t process;
    clockid_t clock{};
};

/// Zeroed memory that child processes share with this one.
[[nodiscard]] void* ShareBytes(std::size_t bytes);
void UnshareBytes(void* memory, std::size_t bytes) noexcept;
/// A record in such memory. It is never destroyed.
template <class Record>
[[nodiscard]] std::shared_ptr<Record> Share() {
    return {new (ShareBytes(sizeof(Record))) Record,
            [](Record* record) { UnshareBytes(record, sizeof(Record)); }};
}

/// The figures of the receivers that run in this program.
struct SBoard {
    std::atomic<std::uint16_t> port{0};
    std::atomic<std::uint64_t> frames{0};
    std::atomic<std::uint64_t> bytes{0};   ///< of all frames
    std::atomic<std::int64_t> frameAt{0};  ///< when the latest frame was complete
};

/// A receiver of a stream. The sender may begin when it is constructed.
class CReceiver {
   public:
    /// `framesExpected` is the total number of frames; a peer ends after the last one.
    CReceiver(EReceiver receiver, EPlace place, const SStreamPlan& plan,
              const CPacketStream& stream, std::uint64_t framesExpected);

    [[nodiscard]] EReceiver kind() const noexcept { return receiverKind; }
    [[nodiscard]] std::uint16_t port() const noexcept { return udpPort; }
    [[nodiscard]] const CChild& process() const noexcept { return *child; }
    [[nodiscard]] const SBoard& board() const noexcept { return *shared; }
    /// Returns whether all expected frames have been delivered.
    [[nodiscard]] bool HasDeliveredAll();

   private:
    const EReceiver receiverKind;
    const std::uint64_t expected;
    std::shared_ptr<SBoard> shared;
    std::uint16_t udpPort = 0;
    std::unique_ptr<CChild> child;
};

}  // namespace bench
