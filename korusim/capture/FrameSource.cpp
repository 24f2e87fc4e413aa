#include "FrameSource.h"

#include "LinkLayer.h"

namespace korusim {

CPacketReader::Packet CPacketReader::Read(const SCapturedFrame& frame) {
    ++frameCount;
    const SLinkPayload link = ReadLinkLayer(frame.linkType, frame.bytes);
    if (link.etherType == etherTypeIpv6) ++ipv6Count;
    if (link.etherType != etherTypeIpv4) return {};
    const auto packet = ipv4.Read(link.bytes);
    if (!packet) return {};
    if (packet->missing != 0) ++cutCount;
    if (const auto datagram = ReadUdp(*packet)) return *datagram;
    if (const auto segment = ReadTcp(*packet)) return *segment;
    return {};
}

}  // namespace korusim
