/// The sender of a benchmark: sends datagrams over loopback and monitors the queue of the receiving
/// socket.
#pragma once

#include <sys/uio.h>

#include <chrono>
#include <cstdint>
#include <span>

namespace bench {

/// The system's figures on a UDP socket.
struct SSocketQueue {
    bool found = false;
    std::uint64_t bytes = 0;    ///< waiting to be received, including the system's bookkeeping
    std::uint64_t dropped = 0;  ///< datagrams for which there was no room
};

[[nodiscard]] SSocketQueue QueueOf(std::uint16_t port);

/// A socket connected to a port of this machine.
class CSender {
   public:
    explicit CSender(std::uint16_t port);
    CSender(const CSender&) = delete;
    CSender& operator=(const CSender&) = delete;
    ~CSender();

    /// Sends all datagrams as fast as the system accepts them.
    void SendBurst(std::span<iovec> packets);
    /// Sends in bursts that certainly fit into the receive buffer. Between two bursts, also of
    /// different calls, it waits until the receiver has emptied the buffer.
    void SendDrained(std::span<iovec> packets);
    /// Waits until no datagram is left at the port. Throws if that takes longer than 10 s.
    void WaitUntilDrained();
    /// Sends one packet each `interval`, also across calls.
    void SendPaced(std::span<iovec> packets, std::chrono::nanoseconds interval);

   private:
    using Clock = std::chrono::steady_clock;
    int descriptor;
    std::uint16_t to;
    std::size_t waiting = 0;  // bytes sent since the buffer was empty
    Clock::time_point due = Clock::now();
};

}  // namespace bench
