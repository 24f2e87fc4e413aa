#include "TransportHeader.h"

#include <charconv>
#include <system_error>

#include "RtspRequest.h"

namespace korusim {
namespace {

std::optional<std::uint16_t> ParsePort(std::string_view text) {
    std::uint16_t port = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, port);
    if (error != std::errc() || end != last || port == 0) return std::nullopt;
    return port;
}

/// Cuts a text at a separator and hands over each piece, trimmed.
template <class Visitor>
void ForEachPiece(std::string_view text, char separator, Visitor visit) {
    for (;;) {
        const std::size_t end = text.find(separator);
        visit(Trim(text.substr(0, end)));
        if (end == std::string_view::npos) return;
        text.remove_prefix(end + 1);
    }
}

/// The client's ports of one offer of a Transport header; none unless it is unicast over UDP.
std::optional<SPortPair> PortsOfOffer(std::string_view offer) {
    constexpr std::string_view portKey = "client_port=";
    std::optional<SPortPair> ports;
    bool first = true;
    bool udp = false;
    bool unicast = false;
    ForEachPiece(offer, ';', [&](std::string_view piece) {
        if (first) udp = SameWord(piece, "RTP/AVP") || SameWord(piece, "RTP/AVP/UDP");
        first = false;
        if (SameWord(piece, "unicast")) unicast = true;
        if (piece.starts_with(portKey)) ports = ParsePortPair(piece.substr(portKey.size()));
    });
    return udp && unicast ? ports : std::nullopt;
}

}  // namespace

std::optional<SPortPair> ParsePortPair(std::string_view text) {
    const std::size_t hyphen = text.find('-');
    const auto first = ParsePort(text.substr(0, hyphen));
    if (!first) return std::nullopt;
    if (hyphen != std::string_view::npos) {
        const auto second = ParsePort(text.substr(hyphen + 1));
        return second ? std::optional(SPortPair{*first, *second}) : std::nullopt;
    }
    if (*first == 65535) return std::nullopt;
    return SPortPair{*first, static_cast<std::uint16_t>(*first + 1)};
}

std::optional<SPortPair> ParseClientPorts(std::string_view transport) {
    std::optional<SPortPair> chosen;
    ForEachPiece(transport, ',', [&](std::string_view offer) {
        if (!chosen) chosen = PortsOfOffer(offer);
    });
    return chosen;
}

std::string PortPairText(SPortPair ports) {
    return std::to_string(ports.rtp) + "-" + std::to_string(ports.rtcp);
}

}  // namespace korusim
