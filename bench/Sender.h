/// The camera's end of a benchmark: sends datagrams over loopback, and looks at the queue of the
/// socket that they go to.
#pragma once

#include <sys/uio.h>

#include <chrono>
#include <cstdint>
#include <span>

namespace bench {

/// What the system says of a UDP socket.
struct SSocketQueue {
    bool found = false;
    std::uint64_t bytes = 0;    ///< waiting to be received, with the system's own bookkeeping
    std::uint64_t dropped = 0;  ///< datagrams that found no room
};

[[nodiscard]] SSocketQueue QueueOf(std::uint16_t port);

/// A socket connected to a port of this machine.
class CSender {
   public:
    explicit CSender(std::uint16_t port);
    CSender(const CSender&) = delete;
    CSender& operator=(const CSender&) = delete;
    ~CSender();

    /// All of them as fast as the system takes them.
    void SendBurst(std::span<iovec> packets);
    /// In bursts as large as surely fits into the receive buffer, waiting between two of them,
    /// which may be calls apart, until the receiver has emptied it.
    void SendDrained(std::span<iovec> packets);
    /// Waits until nothing waits at the port; throws when that takes longer than 10 s.
    void WaitUntilDrained();
    /// One packet each `interval`, going on from the packet before.
    void SendPaced(std::span<iovec> packets, std::chrono::nanoseconds interval);

   private:
    using Clock = std::chrono::steady_clock;
    int descriptor;
    std::uint16_t to;
    std::size_t waiting = 0;  // bytes sent since the buffer was seen empty
    Clock::time_point due = Clock::now();
};

}  // namespace bench
