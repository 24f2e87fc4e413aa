/// IPv4 with its fragments (RFC 791), UDP (RFC 768) and TCP (RFC 9293) as a capture contains them.
#pragma once

#include <bitset>
#include <compare>
#include <cstdint>
#include <list>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace korusim {

/// An IPv4 address and a port, both in host order.
struct SEndpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;
    auto operator<=>(const SEndpoint&) const = default;
};

/// Returns "a.b.c.d".
[[nodiscard]] std::string AddressText(std::uint32_t address);

/// The payload of a whole IPv4 packet.
struct SIpPayload {
    std::uint8_t protocol = 0;
    std::uint32_t from = 0;
    std::uint32_t to = 0;
    std::span<const std::uint8_t> bytes;
    std::uint32_t missing = 0;  ///< bytes at its end that the capture does not contain
};

/// Joins the fragments of IPv4 packets. Keeps a limited number of incomplete ones.
class CIpv4Reader {
   public:
    /// Returns the payload that a packet contains or completes, if any. It is valid until the next
    /// call and as long as the argument.
    [[nodiscard]] std::optional<SIpPayload> Read(std::span<const std::uint8_t> packet);

   private:
    static constexpr std::size_t unitBytes = 8;  // of the fragment offset
    static constexpr std::size_t maxPayload = 65535;

    struct SPacketId {
        std::uint32_t from;
        std::uint32_t to;
        std::uint16_t number;
        std::uint8_t protocol;
        bool operator==(const SPacketId&) const = default;
    };
    struct SIncomplete {
        SPacketId id;
        std::vector<std::uint8_t> bytes;
        std::bitset<maxPayload / unitBytes + 1> units;  // that have arrived
        std::optional<std::size_t> totalBytes;          // known from the last fragment
        std::uint32_t missing = 0;
    };

    [[nodiscard]] std::optional<SIpPayload> AddFragment(const SPacketId& id, std::size_t offset,
                                                        bool last, const SIpPayload& fragment);

    std::list<SIncomplete> incomplete;  // oldest first
    std::vector<std::uint8_t> joined;   // the payload that was returned last
};

struct SUdpDatagram {
    SEndpoint from;
    SEndpoint to;
    std::span<const std::uint8_t> payload;
    bool cut = false;  ///< the capture does not contain all of it
};
[[nodiscard]] std::optional<SUdpDatagram> ReadUdp(const SIpPayload& packet);

struct STcpSegment {
    SEndpoint from;
    SEndpoint to;
    std::uint32_t sequence = 0;
    bool begins = false;  ///< SYN: the data begins after this sequence number
    std::span<const std::uint8_t> payload;
    std::uint32_t missing = 0;  ///< bytes at its end that the capture does not contain
};
[[nodiscard]] std::optional<STcpSegment> ReadTcp(const SIpPayload& packet);

}  // namespace korusim
