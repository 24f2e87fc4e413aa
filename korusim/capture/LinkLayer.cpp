#include "LinkLayer.h"

#include "BigEndian.h"

namespace korusim {
namespace {

/// The numbers of libpcap. Raw IP has a different one on some systems.
enum ELinkType {
    BsdLoopback = 0,
    Ethernet = 1,
    RawIp = 12,
    RawIpOpenBsd = 14,
    RawIpInFiles = 101,
    OpenBsdLoopback = 108,
    LinuxCooked = 113,
    RawIpv4 = 228,
    LinuxCooked2 = 276,
};

constexpr bool IsVlanTag(std::uint16_t etherType) {
    return etherType == 0x8100 || etherType == 0x88A8 || etherType == 0x9100;
}

/// Reads the EtherType at an offset and skips a header that has its end there, or the VLAN tags
/// that follow it.
SLinkPayload AfterEtherType(std::span<const std::uint8_t> frame, std::size_t typeAt,
                            std::size_t payloadAt) {
    if (frame.size() < payloadAt) return {};
    std::uint16_t etherType = bigendian::Get16(&frame[typeAt]);
    while (IsVlanTag(etherType)) {
        if (frame.size() < payloadAt + 4) return {};
        etherType = bigendian::Get16(&frame[payloadAt + 2]);
        payloadAt += 4;
    }
    return {etherType, frame.subspan(payloadAt)};
}

/// The header is the address family in the byte order of the machine that captured. The one of
/// IPv6 differs between systems.
SLinkPayload AfterFamily(std::span<const std::uint8_t> frame) {
    constexpr std::uint32_t familyIpv4 = 2;
    if (frame.size() < 4) return {};
    const std::uint32_t family = bigendian::Get32(frame.data());
    const bool ipv4 = family == familyIpv4 || family == familyIpv4 << 24;
    return {ipv4 ? etherTypeIpv4 : etherTypeIpv6, frame.subspan(4)};
}

SLinkPayload BareIp(std::span<const std::uint8_t> frame) {
    if (frame.empty()) return {};
    return {frame[0] >> 4 == 4 ? etherTypeIpv4 : etherTypeIpv6, frame};
}

}  // namespace

bool IsKnownLinkType(int linkType) noexcept {
    switch (linkType) {
        case BsdLoopback:
        case Ethernet:
        case RawIp:
        case RawIpOpenBsd:
        case RawIpInFiles:
        case OpenBsdLoopback:
        case LinuxCooked:
        case RawIpv4:
        case LinuxCooked2:
            return true;
        default:
            return false;
    }
}

SLinkPayload ReadLinkLayer(int linkType, std::span<const std::uint8_t> frame) {
    switch (linkType) {
        case Ethernet:
            return AfterEtherType(frame, 12, 14);
        case LinuxCooked:
            return AfterEtherType(frame, 14, 16);
        case LinuxCooked2:
            return AfterEtherType(frame, 0, 20);
        case BsdLoopback:
        case OpenBsdLoopback:
            return AfterFamily(frame);
        default:
            return BareIp(frame);
    }
}

}  // namespace korusim
