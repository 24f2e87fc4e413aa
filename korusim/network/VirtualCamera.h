/// One virtual camera: its sockets and the thread that serves all of them. Only that thread uses
/// the model, so there are no locks.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "CameraContent.h"
#include "CameraSettings.h"
#include "NodeTree.h"
#include "Peer.h"
#include "Rtcp.h"
#include "RtspServer.h"
#include "ServerSockets.h"

namespace korusim {

class CVirtualCamera {
   public:
    CVirtualCamera(SCameraSettings cameraSettings, std::unique_ptr<CCameraContent> cameraContent);
    ~CVirtualCamera() { Stop(); }
    CVirtualCamera(const CVirtualCamera&) = delete;
    CVirtualCamera& operator=(const CVirtualCamera&) = delete;

    /// Opens the sockets. Returns a sentence with the reason of a failure, or an empty text.
    [[nodiscard]] std::string Open();
    /// Starts the thread. Call once, after `Open`. Returns a sentence with the reason of a failure,
    /// or an empty text.
    [[nodiscard]] std::string Start();
    /// Ends stream, connections and thread. May be called repeatedly.
    void Stop();
    /// Returns one paragraph for each stream. Call only after `Stop`.
    [[nodiscard]] const std::vector<std::string>& summaries() const noexcept {
        return endedStreams;
    }
    /// Returns a sentence with the reason why the thread ended by itself, or an empty text. Call
    /// only after `Stop`.
    [[nodiscard]] const std::string& failure() const noexcept { return failureText; }

    const SCameraSettings settings;

   private:
    struct SRtspPeer {
        ConnectionId id;
        CPeer link;
        CRtspRequestReader reader;
        TimePoint lastHeard = TimePoint::min();  // `min`: never
    };
    struct STreePeer {
        CPeer link;
        CNodeTreeReader reader;
        TimePoint lastHeard = TimePoint::min();
    };
    /// The stream that belongs to the RTSP server's session.
    struct SRunningStream {
        std::uint64_t sessionSerial;
        std::unique_ptr<CMediaStream> media;
        CRtcpReader rtcp;
        platform::SSocketAddress clientRtp;
        platform::SSocketAddress clientRtcp;
        bool playing = false;
        TimePoint
            lastHeard{};  // a valid RTCP packet, or PLAY: a paused receiver has nothing to report
        TimePoint lastAlive{};  // a request of the session's connection, or a valid RTCP packet
        // Packets lost by the simulated network up to the highest sequence number of the last
        // report.
        std::optional<std::uint64_t> lostOfReported{};
        std::uint64_t reportsSent = 0;
        std::uint64_t unknownSenders =
            0;  // RTCP datagrams from another address or port than the client's
        std::uint64_t refusedBefore = 0;
    };

    void Run();
    void Serve();
    void Wait();
    [[nodiscard]] TimePoint NextDue() const;
    void AcceptPeers();
    template <class Peer, class Add>
    void AcceptFrom(const platform::CSocket& listener, std::list<Peer>& peers, Add add);
    template <class Peer>
    [[nodiscard]] bool CloseIdlest(std::list<Peer>& peers);
    [[nodiscard]] bool HasSession(const SRtspPeer& peer) const;
    [[nodiscard]] bool HasSession(const STreePeer&) const { return false; }
    void ServeRtsp(TimePoint now);
    [[nodiscard]] bool ServeRtspPeer(SRtspPeer& peer, TimePoint now);
    void QueueResponse(SRtspPeer& peer, SRtspResponse response, TimePoint now) const;
    void ServeTree(TimePoint now);
    /// Returns the frame rate at which the camera sends.
    [[nodiscard]] double TrueRate() const;
    [[nodiscard]] bool ServeTreePeer(STreePeer& peer, TimePoint now);
    void ServeRtcp(TimePoint now);
    void ReadRtcp(std::span<const std::uint8_t> datagram, TimePoint now);
    void FollowSession(TimePoint now, const platform::SSocketAddress& client);
    void BeginStream(const SRtspSession& session, TimePoint now,
                     const platform::SSocketAddress& client);
    /// Returns when a silent receiver loses its stream, or nothing if it may stay silent.
    [[nodiscard]] std::optional<TimePoint> RtcpDeadline() const;
    [[nodiscard]] std::optional<TimePoint> SessionDeadline() const;
    /// Ends the session of a receiver that has been silent for too long.
    void EndIfSilent(TimePoint now);
    /// `reason` is a sentence if the camera ends the stream by itself.
    void EndStream(const std::string& reason = {});
    void AdvanceStream(TimePoint now);
    void SendReport(const SOutgoingReport& report);

    std::optional<platform::CSocketWaiter> waiter;  // woken when the thread has to end
    platform::CSocket rtspListener;
    platform::CSocket treeListener;  // invalid if the tree is off
    platform::CSocket rtpSocket;
    platform::CSocket rtcpSocket;

    std::unique_ptr<CCameraContent> content;
    CNodeTree tree;
    std::optional<CRtspServer> server;
    std::list<SRtspPeer> rtspPeers;
    std::list<STreePeer> treePeers;
    ConnectionId lastConnection = 0;
    TimePoint acceptAfter = TimePoint::min();  // while no descriptor is left for a connection
    std::optional<SRunningStream> stream;
    platform::CDatagramBatch outbox;
    PacketSink toOutbox;
    std::vector<platform::SWatchedSocket> watched;

    std::atomic<bool> stopping{false};
    std::thread thread;
    std::vector<std::string> endedStreams;
    std::string failureText;
};

}  // namespace korusim
