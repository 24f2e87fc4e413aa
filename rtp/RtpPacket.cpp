#include "RtpPacket.h"

#include "BigEndian.h"

namespace qmx::cam {

//  0                   1                   2                   3
//  0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
// +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
// |V=2|P|X|  CC   |M|     PT      |       sequence number         |
// |                           timestamp                           |
// |                             SSRC                              |
// |                     CSRC, 0 to 15 of them                     |
// |  profile word, if X is set    |  length of extension in words |
std::optional<SRtpPacket> ParseRtpPacket(std::span<const std::uint8_t> datagram) noexcept {
    constexpr std::size_t fixedHeader = 12;
    constexpr std::size_t extensionHeader = 4;
    if (datagram.size() < rtpDatagramShortest || (datagram[0] >> 6) != 2) return std::nullopt;

    const std::size_t csrcCount = datagram[0] & 0x0F;
    const bool hasExtension = (datagram[0] & 0x10) != 0;
    std::size_t payloadAt = fixedHeader + 4 * csrcCount;
    if (hasExtension) {
        if (payloadAt + extensionHeader > datagram.size()) return std::nullopt;
        const std::size_t words = ReadBig16(&datagram[payloadAt + 2]);
        payloadAt += extensionHeader + 4 * words;
    }
    if (payloadAt > datagram.size()) return std::nullopt;
    return SRtpPacket{(datagram[1] & 0x80) != 0, ReadBig16(&datagram[2]), ReadBig32(&datagram[4]),
                      ReadBig32(&datagram[8]), datagram.subspan(payloadAt)};
}

}  // namespace qmx::cam
