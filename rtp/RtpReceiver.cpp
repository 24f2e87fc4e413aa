#include "RtpReceiver.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <limits>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "ReceivePause.h"
#include "RtpPacket.h"

namespace qmx::cam {
namespace {

/// No camera sends larger datagrams; one that is larger is a failed receive.
constexpr std::size_t packetBufferSize = 16384;
/// On a page of its own: where a datagram lies just in front of the buffer as places within a page
/// go, the processor takes the one for the other, and the system's copy needs up to twice the time.
struct alignas(4096) SPacketBuffer {
    std::uint8_t bytes[packetBufferSize];
};
/// The system's default buffer holds a fraction of a frame. Eight times as much bridges the moments
/// in which the host doesn't let the receive thread run.
constexpr std::int64_t receiveBufferFactor = 8;

/// A bound UDP socket and its port. Raises a runtime error with one of the three texts.
platform::CSocket OpenBound(const char* createFailure, const char* bindFailure,
                            const char* portFailure, std::uint16_t& port) {
    platform::CSocket socket(platform::OpenUdpSocket());
    if (!socket.valid()) throw std::runtime_error(createFailure);
    if (!platform::BindToAnyPort(socket.handle())) throw std::runtime_error(bindFailure);
    const auto localPort = platform::LocalPort(socket.handle());
    if (!localPort) throw std::runtime_error(portFailure);
    port = *localPort;
    return socket;
}

EStreamType StreamTypeOf(const char* name) noexcept {
    constexpr std::array<std::pair<const char*, EStreamType>, 3> types{
        {{"ZRAW", EStreamType::Zraw}, {"MJLS", EStreamType::Mjls}, {"MJPG", EStreamType::Mjpg}}};
    for (const auto& [typeName, type] : types) {
        if (std::strcmp(name, typeName) == 0) return type;
    }
    return EStreamType::None;
}

void RaiseReceiveBuffer(platform::SocketHandle socket) noexcept {
    constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
    const auto bytes = platform::ReceiveBufferSize(socket);
    if (!bytes) return;
    const auto raised = static_cast<std::int32_t>(std::min(receiveBufferFactor * *bytes, most));
    (void)platform::SetReceiveBufferSize(socket, raised);  // a smaller buffer still receives
}

/// Takes a socket out of its field, so that its thread leaves at its next look, and wakes it. The
/// handle is closed by its new owner, once the thread is gone and can't read a reused number.
platform::CSocket TakeOut(std::atomic<platform::SocketHandle>& field) noexcept {
    platform::CSocket socket(field.exchange(platform::noSocket));
    if (socket.valid()) platform::WakeReceiver(socket.handle());
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
    try {
        rtpSocket = OpenBound("failed to create rtp socket", "failed to bind rtp socket",
                              "failed to get rtp socket port", rtpPort)
                        .Release();
        rtcpSocket = OpenBound("failed to create rtcp socket", "failed to bind rtcp socket",
                               "failed to get rtcp socket port", rtcpPort)
                         .Release();
        return true;
    } catch (const std::runtime_error&) {
        CloseSockets();
        rtpPort = 0;
        rtcpPort = 0;
        return false;
    }
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
    const EStreamType type = StreamTypeOf(streamName);
    if (type == EStreamType::None) return false;
    streamType = type;
    stopwatch.Start();
    // The context first: see `Deliver`.
    callbackContext = context;
    frameCallback = callback;
    rtpThread = std::thread(RtpReceiveThread, std::ref(*this));
    rtcpReceiveThread = std::thread(RtcpReceiveThread, std::ref(*this));
    rtcpSendThread = std::thread(RtcpSendThread, std::ref(*this));
    return true;
}

bool CRtpReceiver::Stop() {
    RequireOtherThread();
    EndRun();
    return true;
}

void CRtpReceiver::Reset() {
    RequireOtherThread();
    EndRun();
    CloseSockets();
    serverAddress = {};
    serverRtcpPort = 0;
}

bool CRtpReceiver::OnRtpThread() const noexcept {
    return std::this_thread::get_id() == rtpThreadId.load();
}

void CRtpReceiver::RequireOtherThread() const {
    if (!OnRtpThread()) return;
    // The callback asks its own thread to wait for itself.
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
}

/// Raises nothing: a join fails on its own thread alone, which the callers have excluded.
void CRtpReceiver::EndRun() noexcept {
    if (!IsRunning()) return;
    frameCallback = nullptr;
    callbackContext = nullptr;
    {
        const platform::CSocket closing = TakeOut(rtpSocket);
        if (rtpThread.joinable()) rtpThread.join();
        rtpThreadId = std::thread::id();
    }
    if (rtcpSendThread.joinable()) {
        // Its last report goes out by the RTCP socket, which is still open.
        eventQueue->Post(ERtcpEvent::Stop, stopwatch.elapsed(), 0);
        rtcpSendThread.join();
    }
    {
        const platform::CSocket closing = TakeOut(rtcpSocket);
        if (rtcpReceiveThread.joinable()) rtcpReceiveThread.join();
    }
    eventQueue->Clear();
    stopwatch.Stop();
    *source = {};
}

void CRtpReceiver::CloseSockets() noexcept {
    platform::CSocket(rtpSocket.exchange(platform::noSocket)).Reset();
    platform::CSocket(rtcpSocket.exchange(platform::noSocket)).Reset();
}

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
    if (socket != platform::noSocket) RaiseReceiveBuffer(socket);
    for (; socket != platform::noSocket; socket = receiver.rtpSocket) {
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
        if (const auto frame = assembler.Take(*packet)) receiver.Deliver(*frame);
        if (abandoned) return;  // by the callback, and the receiver may be gone
    }
}

void CRtpReceiver::Deliver(std::span<const std::uint8_t> frame) const {
    // The stop clears the callback first and the context behind it. Read the other way round, no
    // live callback can ever meet a cleared context.
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

}  // namespace qmx::cam
