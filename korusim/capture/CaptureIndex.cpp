#include "CaptureIndex.h"

#include <algorithm>

namespace korusim {
namespace {

/// Most TCP connections that are followed at the same time. One that is not RTSP makes room first.
constexpr std::size_t maxConnections = 64;
constexpr std::size_t maxStreams = 256;
/// Most pairs of endpoints whose datagrams may be RTP without RTSP.
constexpr std::size_t maxFlows = 1024;
/// Limits of the exchanges that are kept: for each server and session, and in bytes together.
constexpr std::size_t maxServers = 256;
constexpr std::size_t maxExchanges = 64;
constexpr std::size_t maxKeptBytes = std::size_t{16} << 20;
/// Least packets of a flow without RTSP. Other protocols look like RTP now and then.
constexpr std::uint64_t minFlowPackets = 10;

bool IsRtspPort(std::uint16_t port) { return port == 554 || port == 8554 || port == 322; }

bool BeginsTls(std::string_view bytes) {
    return bytes.size() >= 3 && bytes[0] == 0x16 && bytes[1] == 0x03 && bytes[2] <= 0x04;
}

std::size_t BytesOf(const SRtspMessage& message) {
    std::size_t bytes = message.startLine.size() + message.body.size();
    for (const auto& [name, value] : message.headers) bytes += name.size() + value.size();
    return bytes;
}

/// Returns why the packets of a transport cannot be replayed, or an empty text.
std::string ObstacleOf(std::string_view transport) {
    if (transport.find("SAVP") != std::string_view::npos) return "is encrypted (SRTP)";
    if (FindParameter(transport, "interleaved") || transport.starts_with("RTP/AVP/TCP")) {
        return "is interleaved in its RTSP connection (TCP); capture one over UDP";
    }
    if (FindParameter(transport, "multicast")) return "is multicast; capture a unicast one";
    return {};
}

}  // namespace

void CCaptureIndex::Add(const SCapturedFrame& frame) {
    const CPacketReader::Packet packet = packets.Read(frame);
    if (const auto* datagram = std::get_if<SUdpDatagram>(&packet)) {
        AddDatagram(frame.time, *datagram);
    } else if (const auto* segment = std::get_if<STcpSegment>(&packet)) {
        AddSegment(*segment);
    }
}

void CCaptureIndex::AddDatagram(std::int64_t time, const SUdpDatagram& datagram) {
    if (const auto receiver = receivers.find(datagram.to); receiver != receivers.end()) {
        contents.streams[receiver->second].flow.Add(time, datagram.payload, datagram.cut);
        return;
    }
    const std::pair key{datagram.from, datagram.to};
    auto flow = flows.find(key);
    if (flow == flows.end()) {
        if (flows.size() == maxFlows || !ReadRtpHeader(datagram.payload)) return;
        flow = flows.try_emplace(key).first;
    }
    flow->second.Add(time, datagram.payload, datagram.cut);
}

CCaptureIndex::SConnection& CCaptureIndex::ConnectionOf(const STcpSegment& segment) {
    const std::pair ends = std::minmax(segment.from, segment.to);
    auto found =
        std::ranges::find(connections, std::pair<SEndpoint, SEndpoint>(ends), &SConnection::ends);
    if (found == connections.end()) {
        if (connections.size() == maxConnections) {
            const auto other = std::ranges::find(connections, false, &SConnection::rtsp);
            connections.erase(other != connections.end() ? other : connections.begin());
        }
        found = connections.emplace(connections.end());
        found->ends = ends;
    }
    connections.splice(connections.end(), connections, found);
    return connections.back();
}

void CCaptureIndex::AddSegment(const STcpSegment& segment) {
    SConnection& connection = ConnectionOf(segment);
    const std::size_t sender = segment.from == connection.ends.first ? 0 : 1;
    const auto pieces = connection.streams[sender].Add(segment);
    if (!pieces.empty() && BeginsTls(pieces.front().bytes) &&
        (IsRtspPort(segment.from.port) || IsRtspPort(segment.to.port))) {
        contents.encryptedRtsp = true;
    }
    AddPieces(connection, sender, pieces);
}

void CCaptureIndex::AddPieces(SConnection& connection, std::size_t sender,
                              const std::vector<STcpPiece>& pieces) {
    CRtspMessageReader& reader = connection.readers[sender];
    const SEndpoint from = sender == 0 ? connection.ends.first : connection.ends.second;
    const SEndpoint to = sender == 0 ? connection.ends.second : connection.ends.first;
    for (const STcpPiece& piece : pieces) {
        reader.Feed(piece.bytes, piece.afterGap);
        while (auto message = reader.Next()) {
            connection.rtsp = true;
            if (auto exchange = connection.conversation.Add(std::move(*message))) {
                AddExchange(from, to, std::move(*exchange));
            }
        }
    }
}

void CCaptureIndex::AddExchange(SEndpoint server, SEndpoint client, SRtspExchange exchange) {
    if (exchange.method == "OPTIONS" || exchange.method == "DESCRIBE") {
        if (contents.exchanges.size() == maxServers && !contents.exchanges.contains(server)) return;
        Keep(contents.exchanges[server], std::move(exchange));
    } else if (exchange.method == "SETUP") {
        if (exchange.status == 200) AddSetup(server, client, std::move(exchange));
    } else {
        AddToSession(server, exchange);
    }
}

void CCaptureIndex::AddSetup(SEndpoint server, SEndpoint client, SRtspExchange exchange) {
    const std::string* const transport = exchange.response.Find("Transport");
    const std::string* const offer = exchange.request.Find("Transport");
    if (transport == nullptr || offer == nullptr || contents.streams.size() == maxStreams) return;
    SRecordedStream stream;
    stream.server = server;
    const auto stated = FindParameter(*transport, "client_port");
    const auto ports = stated ? ParsePortPair(*stated) : ParseClientPorts(*offer);
    stream.obstacle = ObstacleOf(*transport);
    stream.client = {client.address, ports ? ports->rtp : std::uint16_t{0}};
    stream.clientRtcpPort = ports ? ports->rtcp : std::uint16_t{0};
    stream.firstFrame = packets.frames();
    if (const std::string* const session = exchange.response.Find("Session")) {
        stream.session = session->substr(0, session->find(';'));
    }
    Keep(stream.exchanges, std::move(exchange));
    if (stream.exchanges.empty()) return;
    // From here on the ports of the client belong to this stream.
    const auto [receiver, isNew] = receivers.try_emplace(stream.client, contents.streams.size());
    if (!isNew) {
        contents.streams[receiver->second].lastFrame = packets.frames();
        receiver->second = contents.streams.size();
    }
    contents.streams.push_back(std::move(stream));
}

void CCaptureIndex::AddToSession(SEndpoint server, const SRtspExchange& exchange) {
    const std::string* const header = exchange.request.Find("Session");
    if (header == nullptr) return;
    const std::string session = header->substr(0, header->find(';'));
    // One session may control several streams.
    for (SRecordedStream& stream : contents.streams) {
        if (stream.server == server && stream.session == session) {
            Keep(stream.exchanges, exchange);
        }
    }
}

/// Keeps the first success for each method and path, or else the first response.
void CCaptureIndex::Keep(std::vector<SRtspExchange>& kept, SRtspExchange exchange) {
    const std::size_t bytes = BytesOf(exchange.request) + BytesOf(exchange.response);
    const auto same = std::ranges::find_if(kept, [&](const SRtspExchange& each) {
        return each.method == exchange.method && each.url == exchange.url;
    });
    if (same != kept.end() && (same->status == 200 || exchange.status != 200)) return;
    if (bytes > maxKeptBytes - keptBytes) return;
    keptBytes += bytes;
    if (same != kept.end()) {
        *same = std::move(exchange);
    } else if (kept.size() < maxExchanges) {
        kept.push_back(std::move(exchange));
    }
}

SCaptureContents CCaptureIndex::Finish() {
    for (SConnection& connection : connections) {
        for (const std::size_t sender : {0U, 1U}) {
            AddPieces(connection, sender, connection.streams[sender].Finish());
        }
    }
    for (const auto& [ends, flow] : flows) {
        const auto& [from, to] = ends;
        if (flow.packets() < minFlowPackets || flow.otherDatagrams() > flow.packets()) continue;
        if (!flow.format()) continue;
        SRecordedStream stream;
        stream.server = from;
        stream.client = to;
        stream.clientRtcpPort = static_cast<std::uint16_t>(to.port + 1);
        stream.flow = flow;
        contents.streams.push_back(std::move(stream));
    }
    contents.frames = packets.frames();
    contents.ipv6Frames = packets.ipv6Frames();
    contents.cutPackets = packets.cutPackets();
    return std::move(contents);
}

}  // namespace korusim
