/// The media half of a streaming camera: two UDP sockets and three threads that turn the RTP of one
/// stream into whole frames and hand each to the host's callback.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <thread>

#include "RtcpEventQueue.h"
#include "RtpSource.h"
#include "Socket.h"
#include "qmx.h"
#include "qmxcam.h"

namespace qmx::cam {

/// Owned by the device, which calls all operations, one at a time. Knows nothing of RTSP or pixel
/// formats.
///
/// | state     | reached by                       | what holds
/// | Idle      | construction, `Stop`, `Reset`    | no callback, no thread
/// | Bound     | `CreateSockets`                  | both sockets and their ports
/// | Addressed | `SetServerAddress`               | as Bound, and where RTCP goes
/// | Running   | `Start`                          | callback, three threads
///
/// The threads end in a fixed order, which `EndRun` defines: the RTP thread first; then the RTCP
/// send thread, while its socket is still open, so that it can send its BYE; then the RTCP receive
/// thread.
///
/// `sourceLock` guards `source`: exclusive on the RTP thread, shared on the RTCP send thread. The
/// sockets and the callback pair are single atomic words. No lock is held in the callback.
class CRtpReceiver {
   public:
    CRtpReceiver();
    CRtpReceiver(const CRtpReceiver&) = delete;
    CRtpReceiver& operator=(const CRtpReceiver&) = delete;
    /// Ends a run. May be called from within the callback: the RTP thread then uses nothing of the
    /// receiver any more and ends when the callback returns.
    ~CRtpReceiver();

    /// Opens both sockets on ports that the system picks. On failure neither is open and both ports
    /// are 0. Returns false and changes nothing while running, because the threads use the sockets.
    [[nodiscard]] bool CreateSockets();
    /// Local ports in host order; 0 before the first `CreateSockets` and after one that failed.
    [[nodiscard]] std::uint16_t GetRtpPort() const noexcept { return rtpPort; }
    [[nodiscard]] std::uint16_t GetRtcpPort() const noexcept { return rtcpPort; }

    /// Sets the destination of RTCP: a dotted address or a name, and a port in host order. Returns
    /// false when the name cannot be resolved.
    [[nodiscard]] bool SetServerAddress(const char* host, std::uint16_t port);

    /// Starts reception of "ZRAW", "MJLS" or "MJPG" into the callback. Returns false and changes
    /// nothing while running, for any other name and for a null callback. Throws
    /// `std::system_error` when a thread cannot be created; threads that have started by then run
    /// until `Stop` or `Reset`. A socket that keeps failing makes its thread sleep between
    /// attempts.
    [[nodiscard]] bool Start(const char* streamName, FrameCallback callback, void* context);
    [[nodiscard]] bool IsRunning() const noexcept { return frameCallback.load() != nullptr; }

    /// Ends the run and keeps the server address. Always returns true. No callback runs after it
    /// has returned. From within the callback it throws `std::system_error` with
    /// `resource_deadlock_would_occur` and changes nothing.
    bool Stop();
    /// Like `Stop`, and also clears the server address and closes sockets that no run has used.
    void Reset();
    /// Throws what `Stop` throws from within the callback; does nothing on any other thread.
    void ThrowIfOnRtpThread() const;

   private:
    [[nodiscard]] bool OnRtpThread() const noexcept;
    void EndRun() noexcept;
    void CloseSockets() noexcept;

    // The three threads.
    static void RtpReceiveThread(CRtpReceiver& receiver);
    static void RtcpReceiveThread(CRtpReceiver& receiver);
    static void RtcpSendThread(CRtpReceiver& receiver);
    void Deliver(std::span<const std::uint8_t> frame) const;
    void PostSenderReports(std::span<const std::uint8_t> datagram) noexcept;
    void SendRtcp(std::span<const std::uint8_t> packet) const noexcept;

    std::uint16_t rtpPort = 0;
    std::uint16_t rtcpPort = 0;
    std::uint16_t serverRtcpPort = 0;
    std::atomic<platform::SocketHandle> rtpSocket{platform::invalidSocket};
    std::atomic<platform::SocketHandle> rtcpSocket{platform::invalidSocket};
    std::thread rtpThread;
    // Set by the thread itself: its first callback may run before `rtpThread` has been assigned.
    std::atomic<std::thread::id> rtpThreadId;
    bool* rtpThreadAbandoned = nullptr;  // on the RTP thread's stack, used only there
    std::thread rtcpReceiveThread;
    std::thread rtcpSendThread;
    std::atomic<FrameCallback> frameCallback{nullptr};  // not null exactly while running
    std::atomic<void*> callbackContext{nullptr};
    platform::SSocketAddress serverAddress;
    std::unique_ptr<SRtpSource> source;
    CSRWLock sourceLock;
    CStopwatch stopwatch;          // time base of the run
    std::uint32_t streamType = 0;  // 0 before the first `Start`
    std::unique_ptr<CRtcpEventQueue> eventQueue;
};

}  // namespace qmx::cam
