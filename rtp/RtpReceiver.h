/// The media half of a streaming camera: two UDP sockets and three threads that turn the RTP of one
/// stream into whole frames and hand each to the host's callback.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "FrameAssemblers.h"
#include "RtcpEventQueue.h"
#include "RtpSource.h"
#include "Socket.h"
#include "qmx.h"
#include "qmxcam.h"

namespace qmx::cam {

/// Owned by the device, which calls all operations, one at a time. Knows nothing of RTSP or pixel
/// formats.
///
/// | State     | reached by                       | holds
/// | Idle      | construction, `Stop`, `Reset`    | no callback, no thread, no socket of a run
/// | Bound     | `CreateSockets`                  | both sockets and their ports
/// | Addressed | `SetServerAddress`               | as Bound, and where RTCP goes
/// | Running   | `Start`                          | callback, three threads
///
/// The threads end in one fixed order, told in `EndRun`: RTP first; then the RTCP sender, while its
/// socket is open, so that it can say goodbye; then the RTCP receiver.
///
/// `sourceLock` guards `source`: exclusive on the RTP thread, shared on the RTCP send thread. The
/// sockets and the callback pair are single atomic words. No lock is held in the callback.
class CRtpReceiver {
   public:
    CRtpReceiver();
    CRtpReceiver(const CRtpReceiver&) = delete;
    CRtpReceiver& operator=(const CRtpReceiver&) = delete;
    /// Ends a run; from within the callback, too: the RTP thread then touches nothing of the
    /// receiver any more, and leaves once the callback has returned.
    ~CRtpReceiver();

    /// Opens both sockets on ports that the system picks. On failure none is open and both ports
    /// are 0. Refuses, and changes nothing, while running: the threads use the sockets there are.
    [[nodiscard]] bool CreateSockets();
    /// Local ports in host order; 0 before the first `CreateSockets` and after one that failed.
    [[nodiscard]] std::uint16_t GetRtpPort() const noexcept { return rtpPort; }
    [[nodiscard]] std::uint16_t GetRtcpPort() const noexcept { return rtcpPort; }

    /// Where RTCP goes: a dotted address or a name, and a port in host order. False when the name
    /// can't be resolved.
    [[nodiscard]] bool SetServerAddress(const char* host, std::uint16_t port);

    /// Starts reception of "ZRAW", "MJLS" or "MJPG" into the callback. False, with nothing changed,
    /// while running, for another name and for a null callback. Raises `std::system_error` when a
    /// thread can't be created; what has started by then runs on until `Stop` or `Reset`. A socket
    /// that keeps failing makes its thread sleep for a few milliseconds between attempts.
    [[nodiscard]] bool Start(const char* streamName, FrameCallback callback, void* context);
    [[nodiscard]] bool IsRunning() const noexcept { return frameCallback.load() != nullptr; }

    /// Ends the run and keeps the server address; true in every case. No callback runs once it has
    /// returned. From within the callback it raises `std::system_error` with
    /// `resource_deadlock_would_occur`, and nothing has changed.
    bool Stop();
    /// `Stop`, and forgets the server address and sockets that no `Start` has used.
    void Reset();
    /// Raises what `Stop` raises from within the callback; does nothing on any other thread.
    void RequireOtherThread() const;

   private:
    [[nodiscard]] bool OnRtpThread() const noexcept;
    void EndRun() noexcept;
    void CloseSockets() noexcept;

    // The threads' bodies.
    static void RtpReceiveThread(CRtpReceiver& receiver);
    static void RtcpReceiveThread(CRtpReceiver& receiver);
    static void RtcpSendThread(CRtpReceiver& receiver);
    void Deliver(std::span<const std::uint8_t> frame) const;
    void PostSenderReports(std::span<const std::uint8_t> datagram) noexcept;
    void SendRtcp(std::span<const std::uint8_t> packet) const noexcept;

    std::uint16_t rtpPort = 0;
    std::uint16_t rtcpPort = 0;
    std::uint16_t serverRtcpPort = 0;
    std::atomic<platform::SocketHandle> rtpSocket{platform::noSocket};
    std::atomic<platform::SocketHandle> rtcpSocket{platform::noSocket};
    std::thread rtpThread;
    // Written by the thread itself: its first callback may come before `rtpThread` is assigned.
    std::atomic<std::thread::id> rtpThreadId;
    bool* rtpThreadAbandoned = nullptr;  // lives on the RTP thread, and is used there alone
    std::thread rtcpReceiveThread;
    std::thread rtcpSendThread;
    std::atomic<FrameCallback> frameCallback{nullptr};  // non-null is the one sign of running
    std::atomic<void*> callbackContext{nullptr};
    platform::SSocketAddress serverAddress;
    std::unique_ptr<SRtpSource> source;
    CSRWLock sourceLock;
    CStopwatch stopwatch;  // the run's own time base
    EStreamType streamType = EStreamType::None;
    std::unique_ptr<CRtcpEventQueue> eventQueue;
};

}  // namespace qmx::cam
