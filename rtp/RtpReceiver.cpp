#include "RtpReceiver.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

#include "FrameAssembler.h"
#include "ReceivePause.h"
#include "RtcpIdentity.h"
#include "RtcpReporter.h"
#include "RtpPacket.h"

namespace qmx::cam {
namespace {

/// Larger than any datagram of a camera; a larger one is a failed receive.
constexpr std::size_t packetBufferSize = 16384;
/// Aligned to a page to avoid 4K aliasing with the kernel's copy of the datagram: where the two lie
/// at neighbouring places within their pages, the copy takes up to twice as long.
struct alignas(4096) SPacketBuffer {
    std::uint8_t bytes[packetBufferSize];
};
/// Reports of a camera are far shorter.
constexpr std::size_t reportBufferSize = 512;
/// The system's default buffer holds a fraction of a frame. Eight times as much bridges the moments
/// in which the system does not run the receive thread.
constexpr std::int64_t receiveBufferFactor = 8;

struct SBoundSocket {
    platform::CSocket socket;
    std::uint16_t port;  // host order
};

/// Opens a UDP socket on a port that the system picks; nothing when a step fails.
std::optional<SBoundSocket> OpenBound() noexcept {
    platform::CSocket socket(platform::OpenUdpSocket());
    if (!socket.valid() || !platform::BindToAnyPort(socket.handle())) return std::nullopt;
    const auto port = platform::LocalPort(socket.handle());
    if (!port) return std::nullopt;
    return SBoundSocket{std::move(socket), *port};
}

void RaiseReceiveBuffer(platform::SocketHandle socket) noexcept {
    constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
    const auto bytes = platform::ReceiveBufferSize(socket);
    if (!bytes) return;
    const auto raised = static_cast<std::int32_t>(std::min(receiveBufferFactor * *bytes, most));
    (void)platform::SetReceiveBufferSize(socket,
                                         raised);  // reception works with a smaller buffer too
}

/// Removes a socket from its field, so that its thread ends at the next test of the field, and
/// makes the receive that may be blocked on it return. The handle is closed by its new owner, after
/// the thread has been joined: until then the system must not reuse its number.
platform::CSocket DetachSocket(std::atomic<platform::SocketHandle>& field) noexcept {
    platform::CSocket socket(field.exchange(platform::invalidSocket));
    if (socket.valid()) platform::CancelReceives(socket.handle());
    return socket;
}

}  // namespace

CRtpReceiver::CRtpReceiver()
    : source(std::make_unique<SRtpSource>()), eventQueue(std::make_unique<CRtcpEventQueue>()) {}

CRtpReceiver::~CRtpReceiver() {
    if (OnRtpThread()) {
        *rtpThreadAbandoned = true;
        rtpThread.detach();
    }
    EndRun();
    CloseSockets();
}

bool CRtpReceiver::CreateSockets() {
    if (IsRunning()) return false;
    CloseSockets();
    rtpPort = 0;
    rtcpPort = 0;
    auto rtp = OpenBound();
    auto rtcp = rtp ? OpenBound() : std::nullopt;
    if (!rtcp) return false;
    rtpSocket = rtp->socket.Release();
    rtpPort = rtp->port;
    rtcpSocket = rtcp->socket.Release();
    rtcpPort = rtcp->port;
    return true;
}

bool CRtpReceiver::SetServerAddress(const char* host, std::uint16_t port) {
    serverAddress = platform::MakeSocketAddress(0, port);
    const auto address = platform::ResolveIpv4(host);
    if (!address) return false;
    serverAddress.address = *address;
    serverRtcpPort = port;
    return true;
}

bool CRtpReceiver::Start(const char* streamName, FrameCallback callback, void* context) {
    if (IsRunning() || callback == nullptr) return false;
    const std::uint32_t type = StreamTypeOf(streamName);
    if (type == 0) return false;
    streamType = type;
    stopwatch.Start();
    // The context first; see `Deliver`.
    callbackContext = context;
    frameCallback = callback;
    rtpThread = std::thread(RtpReceiveThread, std::ref(*this));
    rtcpReceiveThread = std::thread(RtcpReceiveThread, std::ref(*this));
    rtcpSendThread = std::thread(RtcpSendThread, std::ref(*this));
    return true;
}

bool CRtpReceiver::Stop() {
    ThrowIfOnRtpThread();
    EndRun();
    return true;
}

void CRtpReceiver::Reset() {
    ThrowIfOnRtpThread();
    EndRun();
    CloseSockets();
    serverAddress = {};
    serverRtcpPort = 0;
}

bool CRtpReceiver::OnRtpThread() const noexcept {
    return std::this_thread::get_id() == rtpThreadId.load();
}

void CRtpReceiver::ThrowIfOnRtpThread() const {
    if (!OnRtpThread()) return;
    // The callback would wait for its own thread.
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
}

/// Cannot throw: a join fails only on the thread itself, which the callers have ruled out.
void CRtpReceiver::EndRun() noexcept {
    if (!IsRunning()) return;
    frameCallback = nullptr;
    callbackContext = nullptr;
    {
        const platform::CSocket closing = DetachSocket(rtpSocket);
        if (rtpThread.joinable()) rtpThread.join();
        rtpThreadId = std::thread::id();
    }
    if (rtcpSendThread.joinable()) {
        // It sends its last report through the RTCP socket, which is still open.
        eventQueue->Post(ERtcpEvent::Stop, stopwatch.elapsed(), 0);
        rtcpSendThread.join();
    }
    {
        const platform::CSocket closing = DetachSocket(rtcpSocket);
        if (rtcpReceiveThread.joinable()) rtcpReceiveThread.join();
    }
    eventQueue->Clear();
    stopwatch.Stop();
    *source = {};
}

void CRtpReceiver::CloseSockets() noexcept {
    platform::CSocket(rtpSocket.exchange(platform::invalidSocket)).Reset();
    platform::CSocket(rtcpSocket.exchange(platform::invalidSocket)).Reset();
}

// --- The threads ---------------------------------------------------------------------------------

void CRtpReceiver::RtpReceiveThread(CRtpReceiver& receiver) {
    bool abandoned = false;
    receiver.rtpThreadAbandoned = &abandoned;
    receiver.rtpThreadId = std::this_thread::get_id();
    const std::unique_ptr<SPacketBuffer> packetBuffer(new (std::nothrow) SPacketBuffer);
    if (packetBuffer == nullptr) return;
    CFrameAssembler assembler(receiver.streamType);
    CReceivePause pause;
    bool firstPacket = true;
    platform::SocketHandle socket = receiver.rtpSocket;
    if (socket != platform::invalidSocket) RaiseReceiveBuffer(socket);
    for (; socket != platform::invalidSocket; socket = receiver.rtpSocket) {
        const std::ptrdiff_t size =
            platform::ReceiveDatagram(socket, packetBuffer->bytes, packetBufferSize);
        if (size == 0) return;
        if (size < 0) {
            pause.Failed();
            continue;
        }
        pause.Succeeded();
        const auto packet = ParseRtpPacket({packetBuffer->bytes, static_cast<std::size_t>(size)});
        if (!packet) continue;
        receiver.sourceLock.WriteLock();
        UpdateSource(*receiver.source, firstPacket, packet->sequence, packet->ssrc);
        receiver.sourceLock.WriteUnlock();
        if (const auto frame = assembler.Add(*packet)) receiver.Deliver(*frame);
        if (abandoned) return;  // the callback has destroyed the receiver
    }
}

void CRtpReceiver::Deliver(std::span<const std::uint8_t> frame) const {
    // A stop clears the callback first and the context after it. Read in the opposite order, a live
    // callback is never paired with a cleared context.
    void* const context = callbackContext;
    const FrameCallback callback = frameCallback;
    if (callback == nullptr) return;
    try {
        callback(context, frame.data(), static_cast<std::uint32_t>(frame.size()));
    } catch (...) {
        // An exception of the host would end its process here, and is discarded. What unwinds
        // without an exception object ends this thread (pthread_exit, pthread_cancel) and must
        // pass.
        if (std::current_exception() == nullptr) throw;
    }
}

void CRtpReceiver::RtcpReceiveThread(CRtpReceiver& receiver) {
    const std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[reportBufferSize]);
    if (buffer == nullptr) return;
    CReceivePause pause;
    for (platform::SocketHandle socket = receiver.rtcpSocket; socket != platform::invalidSocket;
         socket = receiver.rtcpSocket) {
        const std::ptrdiff_t size =
            platform::ReceiveDatagram(socket, buffer.get(), reportBufferSize);
        if (size == 0) return;
        if (size < 0) {
            pause.Failed();
            continue;
        }
        pause.Succeeded();
        receiver.PostSenderReports({buffer.get(), static_cast<std::size_t>(size)});
    }
}

void CRtpReceiver::PostSenderReports(std::span<const std::uint8_t> datagram) noexcept {
    CSenderReportReader reports(datagram);
    while (const auto report = reports.Next()) {
        try {
            eventQueue->Post(ERtcpEvent::SenderReport, stopwatch.elapsed(), *report);
        } catch (const std::bad_alloc&) {
            return;  // as if the datagram had been lost
        }
    }
}

void CRtpReceiver::RtcpSendThread(CRtpReceiver& receiver) {
    CRtcpReporter reporter(MakeSsrc(), OwnHostName().data());
    receiver.SendRtcp(reporter.InitialReport());
    for (;;) {
        const SRtcpEvent event = receiver.eventQueue->Wait();
        // The shared side, although the update moves the source's `prior` counters: this thread
        // alone takes the shared side, and alone uses those counters.
        receiver.sourceLock.ReadLock();
        const SReportBlock block = UpdateReportBlock(*receiver.source);
        receiver.sourceLock.ReadUnlock();
        if (const auto packet = reporter.Handle(event, block, receiver.stopwatch.elapsed())) {
            receiver.SendRtcp(*packet);
        }
        if (event.kind == ERtcpEvent::Stop) return;
    }
}

/// A report that is lost is not sent again.
void CRtpReceiver::SendRtcp(std::span<const std::uint8_t> packet) const noexcept {
    const platform::SocketHandle socket = rtcpSocket;
    if (socket == platform::invalidSocket) return;
    (void)platform::SendDatagram(socket, packet.data(), packet.size(), serverAddress);
}

}  // namespace qmx::cam
