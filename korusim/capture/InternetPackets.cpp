#include "InternetPackets.h"

#include <algorithm>

#include "BigEndian.h"

namespace korusim {
namespace {

constexpr std::size_t ipHeaderBytes = 20;
constexpr std::size_t udpHeaderBytes = 8;
constexpr std::size_t tcpHeaderBytes = 20;
constexpr std::uint8_t tcpProtocol = 6;
constexpr std::uint8_t udpProtocol = 17;
/// Most packets whose fragments are being collected: at most 4 MB. A sender finishes one packet
/// before the next, so that a few suffice.
constexpr std::size_t maxIncomplete = 64;

}  // namespace

std::string AddressText(std::uint32_t address) {
    std::string text = std::to_string(address >> 24);
    for (const int shift : {16, 8, 0}) text += "." + std::to_string(address >> shift & 0xFF);
    return text;
}

std::optional<SIpPayload> CIpv4Reader::Read(std::span<const std::uint8_t> packet) {
    if (packet.size() < ipHeaderBytes || packet[0] >> 4 != 4) return std::nullopt;
    const std::size_t headerBytes = std::size_t{packet[0] & 0xFU} * 4;
    std::size_t totalBytes = bigendian::Get16(&packet[2]);
    // A packet that the network card is to divide has no length yet.
    if (totalBytes == 0) totalBytes = std::min(packet.size(), maxPayload);
    if (headerBytes < ipHeaderBytes || totalBytes < headerBytes || packet.size() < headerBytes) {
        return std::nullopt;
    }
    const std::size_t captured = std::min(packet.size(), totalBytes);  // after it comes padding
    SIpPayload payload{packet[9], bigendian::Get32(&packet[12]), bigendian::Get32(&packet[16]),
                       packet.first(captured).subspan(headerBytes),
                       static_cast<std::uint32_t>(totalBytes - captured)};

    constexpr unsigned moreFragments = 0x2000;
    constexpr unsigned offsetMask = 0x1FFF;
    const unsigned fragment = bigendian::Get16(&packet[6]);
    if ((fragment & (moreFragments | offsetMask)) == 0) return payload;
    const SPacketId id{payload.from, payload.to, bigendian::Get16(&packet[4]), payload.protocol};
    return AddFragment(id, std::size_t{fragment & offsetMask} * unitBytes,
                       (fragment & moreFragments) == 0, payload);
}

std::optional<SIpPayload> CIpv4Reader::AddFragment(const SPacketId& id, std::size_t offset,
                                                   bool last, const SIpPayload& fragment) {
    const std::size_t end = offset + fragment.bytes.size() + fragment.missing;
    if (end > maxPayload || end == offset || (!last && end % unitBytes != 0)) return std::nullopt;
    auto entry = std::ranges::find(incomplete, id, &SIncomplete::id);
    if (entry == incomplete.end()) {
        if (incomplete.size() == maxIncomplete) incomplete.pop_front();
        entry = incomplete.insert(incomplete.end(), {id, {}, {}, {}, 0});
    }
    if (entry->bytes.size() < end) entry->bytes.resize(end);
    // Where fragments overlap, which no honest sender lets them, the later one counts.
    std::ranges::copy(fragment.bytes, entry->bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    for (std::size_t unit = offset / unitBytes; unit * unitBytes < end; ++unit) {
        entry->units.set(unit);
    }
    if (last) entry->totalBytes = end;
    entry->missing = std::max(entry->missing, fragment.missing);
    if (!entry->totalBytes || entry->bytes.size() != *entry->totalBytes ||
        entry->units.count() != (*entry->totalBytes + unitBytes - 1) / unitBytes) {
        return std::nullopt;
    }
    joined = std::move(entry->bytes);
    const std::uint32_t missing = entry->missing;
    incomplete.erase(entry);
    return SIpPayload{fragment.protocol, fragment.from, fragment.to, joined, missing};
}

std::optional<SUdpDatagram> ReadUdp(const SIpPayload& packet) {
    const auto bytes = packet.bytes;
    if (packet.protocol != udpProtocol || bytes.size() < udpHeaderBytes) return std::nullopt;
    const std::size_t length = bigendian::Get16(&bytes[4]);
    if (length < udpHeaderBytes) return std::nullopt;
    const auto payload = bytes.first(std::min(length, bytes.size())).subspan(udpHeaderBytes);
    return SUdpDatagram{{packet.from, bigendian::Get16(bytes.data())},
                        {packet.to, bigendian::Get16(&bytes[2])},
                        payload,
                        length > bytes.size() || packet.missing != 0};
}

std::optional<STcpSegment> ReadTcp(const SIpPayload& packet) {
    const auto bytes = packet.bytes;
    if (packet.protocol != tcpProtocol || bytes.size() < tcpHeaderBytes) return std::nullopt;
    const std::size_t headerBytes = static_cast<std::size_t>(bytes[12] >> 4) * 4;
    if (headerBytes < tcpHeaderBytes || headerBytes > bytes.size()) return std::nullopt;
    constexpr unsigned synBit = 2;
    return STcpSegment{{packet.from, bigendian::Get16(bytes.data())},
                       {packet.to, bigendian::Get16(&bytes[2])},
                       bigendian::Get32(&bytes[4]),
                       (bytes[13] & synBit) != 0,
                       bytes.subspan(headerBytes),
                       packet.missing};
}

}  // namespace korusim
