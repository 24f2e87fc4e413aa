// The two RTCP threads of the receiver.
#include <cstdint>

#include "RtpReceiver.h"

namespace qmx::cam {
namespace {

/// Reports of a camera are far shorter.
constexpr std::size_t reportBufferSize = 512;

}  // namespace

void CRtpReceiver::RtcpReceiveThread(CRtpReceiver& receiver) {
    std::uint8_t buffer[reportBufferSize];
    for (platform::SocketHandle socket = receiver.rtcpSocket; socket != platform::noSocket;
         socket = receiver.rtcpSocket) {
        if (platform::ReceiveDatagram(socket, buffer, sizeof(buffer)) == 0) return;
    }
}

void CRtpReceiver::RtcpSendThread(CRtpReceiver& receiver) {
    while (receiver.eventQueue->Wait().kind != ERtcpEvent::Stop) {
    }
}

}  // namespace qmx::cam
