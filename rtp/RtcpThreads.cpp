// The two RTCP threads of the receiver: one takes in the camera's sender reports, the other answers
// every fourth of them. No clock paces them: the camera does.
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <optional>

#include "ReceivePause.h"
#include "RtcpPackets.h"
#include "RtpReceiver.h"

namespace qmx::cam {
namespace {

/// Reports of a camera are far shorter.
constexpr std::size_t reportBufferSize = 512;
constexpr std::size_t nameBufferSize = 256;
/// Sender reports to one report of ours.
constexpr unsigned reportEvery = 4;

using NameBuffer = std::array<char, nameBufferSize>;

/// The bare name of this machine, NUL-terminated.
NameBuffer OwnName() noexcept {
    NameBuffer name{};
    if (!platform::HostName(name.data(), name.size())) std::strcpy(name.data(), "localhost");
    return name;
}

/// An SSRC from the machine's name and the generator's bytes behind it, folded to four.
SsrcBytes MakeSsrc() noexcept {
    NameBuffer bytes = OwnName();
    std::srand(static_cast<unsigned>(std::clock()));  // the host's generator, too
    for (std::size_t i = std::strlen(bytes.data()); i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(std::rand());
    }
    SsrcBytes ssrc{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        ssrc[i % ssrc.size()] ^= static_cast<std::uint8_t>(bytes[i]);
    }
    return ssrc;
}

/// Seconds in the unit of a report's delay; the low 32 bits count.
std::uint32_t DelayUnits(double seconds) noexcept {
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(seconds * 65536.0));
}

}  // namespace

void CRtpReceiver::RtcpReceiveThread(CRtpReceiver& receiver) {
    const std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[reportBufferSize]);
    if (buffer == nullptr) return;
    CReceivePause pause;
    for (platform::SocketHandle socket = receiver.rtcpSocket; socket != platform::noSocket;
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
    CSenderReportWalk walk(datagram);
    while (const auto report = walk.Next()) {
        try {
            eventQueue->Post(ERtcpEvent::SenderReport, stopwatch.elapsed(), *report);
        } catch (const std::bad_alloc&) {
            return;  // as if the datagram had been lost
        }
    }
}

void CRtpReceiver::RtcpSendThread(CRtpReceiver& receiver) {
    const NameBuffer name = OwnName();
    CRtcpComposer composer(MakeSsrc(), name.data());
    receiver.SendRtcp(composer.Opening());

    unsigned srCount = 0;
    std::optional<SRtcpEvent> latest;  // sender report
    for (;;) {
        const SRtcpEvent event = receiver.eventQueue->Wait();
        // Shared, although the figures move the counters of the last report: this is the one thread
        // that takes the shared side.
        receiver.sourceLock.ReadLock();
        const SLossFigures figures = TakeLossFigures(*receiver.source);
        receiver.sourceLock.ReadUnlock();
        if (event.kind == ERtcpEvent::Stop) {
            const std::uint32_t delay =
                latest ? DelayUnits(receiver.stopwatch.elapsed() - latest->time) : 0;
            receiver.SendRtcp(
                composer.LastReport(figures, latest ? latest->lastSenderReport : 0, delay));
            return;
        }
        latest = event;
        if (++srCount < reportEvery) continue;
        receiver.SendRtcp(composer.Report(figures, event.lastSenderReport, 0));
        srCount = 0;
    }
}

/// A report that is lost is not sent again.
void CRtpReceiver::SendRtcp(std::span<const std::uint8_t> packet) const noexcept {
    const platform::SocketHandle socket = rtcpSocket;
    if (socket == platform::noSocket) return;
    (void)platform::SendDatagram(socket, packet.data(), packet.size(), serverAddress);
}

}  // namespace qmx::cam
