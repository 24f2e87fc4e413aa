/// One virtual camera: its sockets and the one thread that serves them all. The thread alone
/// touches the model, so there are no locks.
#pragma once

#include <poll.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "CameraSettings.h"
#include "Network.h"
#include "NodeTree.h"
#include "Rtcp.h"
#include "RtspServer.h"
#include "VideoStream.h"

namespace korusim {

class CVirtualCamera {
   public:
    explicit CVirtualCamera(SCameraSettings cameraSettings);
    ~CVirtualCamera() { Stop(); }
    CVirtualCamera(const CVirtualCamera&) = delete;
    CVirtualCamera& operator=(const CVirtualCamera&) = delete;

    /// Makes the camera reachable; gives a sentence that says why it can't be, or nothing.
    [[nodiscard]] std::string Open();
    /// Starts the thread. Once, after `Open`. Returns a sentence that says why it cannot, or
    /// nothing.
    [[nodiscard]] std::string Start();
    /// Ends stream, connections and thread. May be repeated.
    void Stop();
    /// What happened on each stream, one paragraph each. After `Stop` only.
    [[nodiscard]] const std::vector<std::string>& summaries() const noexcept {
        return endedStreams;
    }
    /// What has ended the thread before its time, in one sentence; else nothing. After `Stop` only.
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
        CVideoStream video;
        CRtcpReader rtcp;
        sockaddr_in clientRtp;
        sockaddr_in clientRtcp;
        bool playing = false;
        TimePoint nextReport{};
        TimePoint lastHeard{};  // a valid RTCP packet, or PLAY: who is paused has nothing to report
        // Lost by the network up to the highest sequence number of the last report.
        std::optional<std::uint64_t> lostOfReported{};
        std::uint64_t reportsSent = 0;
        std::uint64_t unknownSenders = 0;  // RTCP datagrams from elsewhere than the client's port
        std::uint64_t refusedBefore = 0;
    };

    void Run();
    void Serve();
    void Wait();
    [[nodiscard]] TimePoint NextDue() const;
    void AcceptPeers();
    template <class Peer, class Add>
    void AcceptFrom(const CDescriptor& listener, std::list<Peer>& peers, Add add);
    template <class Peer>
    [[nodiscard]] bool CloseIdlest(std::list<Peer>& peers);
    [[nodiscard]] bool HasSession(const SRtspPeer& peer) const;
    [[nodiscard]] bool HasSession(const STreePeer&) const { return false; }
    void ServeRtsp(TimePoint now);
    [[nodiscard]] bool ServeRtspPeer(SRtspPeer& peer, TimePoint now);
    void QueueAnswer(SRtspPeer& peer, SRtspAnswer answer, TimePoint now) const;
    void ServeTree(TimePoint now);
    [[nodiscard]] bool ServeTreePeer(STreePeer& peer, TimePoint now);
    void ServeRtcp(TimePoint now);
    void ReadRtcp(std::span<const std::uint8_t> datagram, TimePoint now);
    void FollowSession(TimePoint now, const sockaddr_in& client);
    void BeginStream(const SRtspSession& session, TimePoint now, const sockaddr_in& client);
    /// When a receiver that stays silent loses its stream; none when it may stay silent.
    [[nodiscard]] std::optional<TimePoint> RtcpDeadline() const;
    /// `silenceSeconds` isn't 0 when the receiver's silence is the reason.
    void EndStream(double silenceSeconds = 0);
    void AdvanceStream(TimePoint now);
    void SendReport(TimePoint now);
    [[nodiscard]] std::shared_ptr<const CScene> SceneFor(SPictureSize size);

    CDescriptor wake;  // readable when the thread is to end
    CDescriptor rtspListener;
    CDescriptor treeListener;  // none with the tree off
    CDescriptor rtpSocket;
    CDescriptor rtcpSocket;

    CNodeTree tree;
    std::optional<CRtspServer> server;
    std::list<SRtspPeer> rtspPeers;
    std::list<STreePeer> treePeers;
    ConnectionId lastConnection = 0;
    TimePoint acceptAfter = TimePoint::min();  // no descriptor was left for a connection
    std::optional<SRunningStream> stream;
    std::vector<std::pair<SPictureSize, std::shared_ptr<const CScene>>> scenes;
    COutbox outbox;
    PacketSink toOutbox;
    std::vector<pollfd> waiting;

    std::atomic<bool> stopping{false};
    std::thread thread;
    std::vector<std::string> endedStreams;
    std::string failureText;
};

}  // namespace korusim
