/// The table of contents of a capture: its RTSP conversations and the RTP streams.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "FrameSource.h"
#include "RtpFlow.h"
#include "RtspMessages.h"
#include "TcpStream.h"
#include "TransportHeader.h"

namespace korusim {

/// A stream that was set up by RTSP, or a flow of RTP packets without RTSP.
struct SRecordedStream {
    SEndpoint server;  ///< of RTSP; without RTSP the sender of the packets
    /// To which the RTP packets go. Those of a stream that RTSP has set up may come from anywhere:
    /// a camera can have several addresses.
    SEndpoint client;
    std::uint16_t clientRtcpPort = 0;
    /// The frames of the capture, counted from 1, among which its packets are: after the first and
    /// up to the last.
    std::uint64_t firstFrame = 0;
    std::uint64_t lastFrame = ~std::uint64_t{0};
    CRtpFlow flow;
    std::string session;                   ///< identifier; empty without RTSP
    std::vector<SRtspExchange> exchanges;  ///< of the session, with SETUP first; none without RTSP
    std::string obstacle;                  ///< why it cannot be replayed, or empty

    [[nodiscard]] bool hasRtsp() const noexcept { return !exchanges.empty(); }
    [[nodiscard]] bool IsRtp(const SUdpDatagram& datagram) const {
        return datagram.to == client && (hasRtsp() || datagram.from == server);
    }
    [[nodiscard]] bool IsRtcp(const SUdpDatagram& datagram) const {
        return datagram.to == SEndpoint{client.address, clientRtcpPort};
    }
};

struct SCaptureContents {
    std::vector<SRecordedStream> streams;  ///< those set up by RTSP first, each in order of time
    /// Exchanges that belong to no session, by the server's endpoint.
    std::map<SEndpoint, std::vector<SRtspExchange>> exchanges;
    std::uint64_t frames = 0;
    std::uint64_t ipv6Frames = 0;
    std::uint64_t cutPackets = 0;  ///< of which the end was not captured
    bool encryptedRtsp = false;    ///< there is a connection to an RTSP port that begins with TLS
};

/// Builds the table of contents in one pass. What it keeps does not grow with the number of
/// packets.
class CCaptureIndex {
   public:
    void Add(const SCapturedFrame& frame);
    /// Returns the contents. Call once, after the last frame.
    [[nodiscard]] SCaptureContents Finish();

   private:
    /// A TCP connection. `ends` are its two endpoints, the lower one first.
    struct SConnection {
        std::pair<SEndpoint, SEndpoint> ends;
        CTcpStream streams[2];  // from each of the ends
        CRtspMessageReader readers[2];
        CRtspConversation conversation;
        bool rtsp = false;  // has had a message
    };

    void AddDatagram(std::int64_t time, const SUdpDatagram& datagram);
    void AddSegment(const STcpSegment& segment);
    [[nodiscard]] SConnection& ConnectionOf(const STcpSegment& segment);
    void AddPieces(SConnection& connection, std::size_t sender,
                   const std::vector<STcpPiece>& pieces);
    void AddExchange(SEndpoint server, SEndpoint client, SRtspExchange exchange);
    void AddSetup(SEndpoint server, SEndpoint client, SRtspExchange exchange);
    void AddToSession(SEndpoint server, const SRtspExchange& exchange);
    void Keep(std::vector<SRtspExchange>& kept, SRtspExchange exchange);

    CPacketReader packets;
    std::list<SConnection> connections;          // the latest used last
    std::map<SEndpoint, std::size_t> receivers;  // index into `contents.streams` of the latest one
    std::map<std::pair<SEndpoint, SEndpoint>, CRtpFlow> flows;  // without RTSP: sender and receiver
    std::size_t keptBytes = 0;                                  // of exchanges
    SCaptureContents contents;
};

/// Returns true if the capture contains the description of a stream.
[[nodiscard]] bool IsDescribed(const SCaptureContents& contents, const SRecordedStream& stream);

/// Returns the index into `streams` of the stream to replay. `number` counts from 1; 0 chooses the
/// only stream that RTSP has set up. Throws `std::runtime_error` if there is none, or several, or
/// if the stream cannot be replayed; the text says what the capture contains.
[[nodiscard]] std::size_t ChooseStream(const SCaptureContents& contents, std::uint32_t number);

}  // namespace korusim
