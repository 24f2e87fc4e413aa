/// The receivers that are compared, each in a process of its own so that its CPU time is its own.
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
    Plain,  ///< recvfrom and one memcpy, over and over, on the process's one thread
    /// The same in a process with a second, idle thread, as each host has: the system then counts
    /// who uses a socket, at each call.
    PlainAmongThreads,
    Plugin,     ///< the plug-in's receiver with a callback that only counts
    GStreamer,  ///< udpsrc ! rtpvrawdepay or rtpjpegdepay ! fakesink
    Ffmpeg,     ///< an SDP file, -c copy -f null
};
inline constexpr EReceiver allReceivers[] = {EReceiver::Plain, EReceiver::PlainAmongThreads,
                                             EReceiver::Plugin, EReceiver::GStreamer,
                                             EReceiver::Ffmpeg};

[[nodiscard]] const char* NameOf(EReceiver kind) noexcept;
/// Whether it is another program, which takes its raw streams by RFC 4175 and not as these cameras
/// send them.
[[nodiscard]] constexpr bool IsPeer(EReceiver kind) noexcept {
    return kind == EReceiver::GStreamer || kind == EReceiver::Ffmpeg;
}
/// Whether a receiver is installed and knows the stream.
[[nodiscard]] bool CanTake(EReceiver kind, const SStreamPlan& plan);

/// Where a receiver and its sender run.
enum class EPlace {
    /// On one processor, where the receiver runs only while the sender sleeps: it always finds the
    /// next datagram waiting, and its time is that of the work alone.
    Behind,
    /// On the other processor, as behind a network: it sleeps and wakes as the datagrams come.
    Beside,
};

/// Puts the calling thread, a sender's, where a place wants it.
void PlaceSender(EPlace place);

/// Nanoseconds of the steady clock, the same in all processes.
[[nodiscard]] std::int64_t Now() noexcept;

/// For a thread or a process that others end.
[[noreturn]] void PauseForEver();

/// A child process, which its destructor ends.
class CChild {
   public:
    /// Runs `body` in a new process, on the processor that the place says. The calling process has
    /// one thread only. The process ends when `body` returns.
    CChild(EPlace place, const std::function<void()>& body);
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;
    ~CChild();

    [[nodiscard]] std::chrono::nanoseconds cpuTime() const;
    /// Resident memory in bytes.
    [[nodiscard]] std::uint64_t residentBytes() const;
    /// True when the process ends by itself within 10 s.
    [[nodiscard]] bool WaitForEnd();

   private:
    pid_t process;
    clockid_t clock{};
};

/// Memory, all zero, that child processes share with this one.
[[nodiscard]] void* ShareBytes(std::size_t bytes);
void UnshareBytes(void* memory, std::size_t bytes) noexcept;
/// A record in such memory; it is never destroyed.
template <class Record>
[[nodiscard]] std::shared_ptr<Record> Share() {
    return {new (ShareBytes(sizeof(Record))) Record,
            [](Record* record) { UnshareBytes(record, sizeof(Record)); }};
}

/// What the receivers of our own tell.
struct SBoard {
    std::atomic<std::uint16_t> port{0};
    std::atomic<std::uint64_t> frames{0};
    std::atomic<std::uint64_t> bytes{0};   ///< of all frames
    std::atomic<std::int64_t> frameAt{0};  ///< when the latest frame was whole
};

/// A receiver of a stream, ready to be sent to.
class CReceiver {
   public:
    /// `framesExpected` is how many frames it will get in all: a peer ends behind the last.
    CReceiver(EReceiver receiver, EPlace place, const SStreamPlan& plan,
              const CPacketStream& stream, std::uint64_t framesExpected);

    [[nodiscard]] EReceiver kind() const noexcept { return receiverKind; }
    [[nodiscard]] std::uint16_t port() const noexcept { return udpPort; }
    [[nodiscard]] const CChild& process() const noexcept { return *child; }
    [[nodiscard]] const SBoard& board() const noexcept { return *shared; }
    /// Whether all frames that were expected have come out at its other end.
    [[nodiscard]] bool HasDeliveredAll();

   private:
    const EReceiver receiverKind;
    const std::uint64_t expected;
    std::shared_ptr<SBoard> shared;
    std::uint16_t udpPort = 0;
    std::unique_ptr<CChild> child;
};

}  // namespace bench
