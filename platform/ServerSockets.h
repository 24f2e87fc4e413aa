/// Sockets of a server with many connections: non-blocking, not inherited, and bound to one IPv4
/// address. The plug-in does not use them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "Socket.h"

namespace platform {

/// A socket, or a sentence with the reason of the failure.
struct SServerSocket {
    CSocket socket;
    std::string error;
};
/// Opens a socket that accepts connections at a dotted address. A port that connections of an
/// earlier process have used is free at once.
[[nodiscard]] SServerSocket ListenTcp(const std::string& address, std::uint16_t port);
/// Opens a UDP socket at a dotted address, on a port that the system picks, with a send buffer for
/// bursts.
[[nodiscard]] SServerSocket BindUdp(const std::string& address);

/// The result of an attempt to accept a connection.
struct SAccepted {
    CSocket socket;  ///< invalid if no connection waits, or if the process lacks a descriptor
    SSocketAddress remote;
    bool lacksDescriptor = false;
};
/// Accepts one connection. Each of its sends leaves at once, so that pieces which are sent
/// separately stay separate.
[[nodiscard]] SAccepted Accept(const CSocket& listener);

/// Receives what a connection has, at most the size of the buffer. Returns 0 if there is nothing
/// yet, and nothing if the peer has closed the connection.
[[nodiscard]] std::optional<std::size_t> ReceiveWaiting(const CSocket& connection,
                                                        std::span<char> buffer);
/// Sends as much as fits into the send buffer. Returns the number of bytes, or nothing if the peer
/// has closed the connection.
[[nodiscard]] std::optional<std::size_t> SendFitting(const CSocket& connection,
                                                     std::span<const char> bytes);
/// Receives one datagram and its sender. Returns nothing if none waits. A datagram that is larger
/// than the buffer loses its end.
[[nodiscard]] std::optional<std::size_t> ReceiveDatagramFrom(const CSocket& socket,
                                                             std::span<std::uint8_t> buffer,
                                                             SSocketAddress& from);

/// What a wait watches on one socket, and its result.
struct SWatchedSocket {
    SocketHandle socket = invalidSocket;  ///< one that is invalid is never ready
    bool toRead = true;                   ///< a connection to accept counts as well
    bool toWrite = false;
    /// Set by the wait. Windows reports either all sockets or none as ready.
    bool ready = false;
};

/// The shortest wait that the system's timers can measure.
extern const std::chrono::nanoseconds shortestWait;

/// Waits for several sockets, for a wake-up by another thread, and for a time.
class CSocketWaiter {
   public:
    CSocketWaiter();
    ~CSocketWaiter();
    CSocketWaiter(const CSocketWaiter&) = delete;
    CSocketWaiter& operator=(const CSocketWaiter&) = delete;

    /// Returns false if the process lacks descriptors.
    [[nodiscard]] bool valid() const noexcept;
    /// Ends the present wait and all later ones at once. Thread-safe.
    void Wake() noexcept;
    /// Waits until a socket is ready, but no longer than the limit, if there is one.
    void Wait(std::span<SWatchedSocket> sockets, std::optional<std::chrono::nanoseconds> limit);

   private:
    struct SState;
    std::unique_ptr<SState> state;
};

/// Collects datagrams for few system calls. The buffers are allocated once.
class CDatagramBatch {
   public:
    CDatagramBatch();
    ~CDatagramBatch();
    CDatagramBatch(const CDatagramBatch&) = delete;
    CDatagramBatch& operator=(const CDatagramBatch&) = delete;

    /// Prepares for datagrams of at most this size to one receiver. The socket is not owned.
    void Aim(const CSocket& socket, const SSocketAddress& to, std::size_t maxBytes);
    /// Copies a datagram. Sends all when there is no room for more.
    void Add(std::span<const std::uint8_t> datagram);
    /// Sends all datagrams. Those that the system refuses are lost, as on a network.
    void Flush();
    [[nodiscard]] std::uint64_t refused() const noexcept;

   private:
    struct SState;
    std::unique_ptr<SState> state;
};

}  // namespace platform
