#include "VirtualCamera.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <system_error>

#include "Process.h"
#include "StreamSummary.h"

namespace korusim {
namespace {

constexpr std::uint16_t rtspPort = 554;
constexpr std::uint16_t treePort = 4554;
/// Most simultaneous connections of one kind; a real camera serves fewer.
constexpr std::size_t maxPeers = 32;
/// Pause before the next attempt to accept a connection for which there was no descriptor.
constexpr std::chrono::milliseconds acceptPause{100};
/// Delay of a late response. Clients wait 5 s.
constexpr std::chrono::seconds lateBy{6};
/// Time between the pieces of a split body, so that a client has read the first one.
constexpr std::chrono::milliseconds splitBy{100};
/// Most summaries kept per camera. A test may set up thousands of streams.
constexpr std::size_t maxSummaries = 100;
/// Buffer for an RTCP datagram; those of receivers are far smaller.
constexpr std::size_t maxRtcpBytes = 2048;

using platform::SSocketAddress;

/// Places of the sockets of a camera among those that it watches.
enum EWatched : std::size_t { RtspListener, TreeListener, RtcpSocket };

/// Returns the time of day in NTP format: seconds since 1900 and a 32-bit fraction.
std::uint64_t NtpNow() {
    using namespace std::chrono;
    constexpr std::uint64_t secondsFrom1900To1970 = 2'208'988'800;
    const auto sinceEpoch = system_clock::now().time_since_epoch();
    const auto whole = duration_cast<seconds>(sinceEpoch);
    const auto rest =
        static_cast<std::uint64_t>(duration_cast<nanoseconds>(sinceEpoch - whole).count());
    const auto fraction = (rest << 32) / 1'000'000'000U;
    return (static_cast<std::uint64_t>(whole.count()) + secondsFrom1900To1970) << 32 | fraction;
}

Clock::duration Duration(double seconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

std::string SecondsText(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g s", seconds);
    return text.data();
}

SSocketAddress WithPort(const SSocketAddress& address, std::uint16_t port) {
    return platform::MakeSocketAddress(address.address, port);
}

std::uint16_t PortOf(const platform::CSocket& socket) {
    return platform::LocalPort(socket.handle()).value_or(0);
}

bool SameAddress(const SSocketAddress& left, const SSocketAddress& right) {
    return left.port == right.port && left.address == right.address;
}

}  // namespace

CVirtualCamera::CVirtualCamera(SCameraSettings cameraSettings,
                               std::unique_ptr<CCameraContent> cameraContent)
    : settings(std::move(cameraSettings)),
      content(std::move(cameraContent)),
      tree(settings),
      toOutbox([this](std::span<const std::uint8_t> packet) { outbox.Add(packet); }) {}

std::string CVirtualCamera::Open() {
    waiter.emplace();
    std::array<platform::SServerSocket, 4> sockets;
    sockets[0] = platform::ListenTcp(settings.address, rtspPort);
    if (settings.tree != ETree::Off) sockets[1] = platform::ListenTcp(settings.address, treePort);
    sockets[2] = platform::BindUdp(settings.address);
    sockets[3] = platform::BindUdp(settings.address);
    for (const platform::SServerSocket& result : sockets) {
        if (!result.error.empty()) return "camera \"" + settings.name + "\": " + result.error;
    }
    if (!waiter->valid()) return "camera \"" + settings.name + "\": no file descriptors left";
    rtspListener = std::move(sockets[0].socket);
    treeListener = std::move(sockets[1].socket);
    rtpSocket = std::move(sockets[2].socket);
    rtcpSocket = std::move(sockets[3].socket);
    SCameraSettings seeded = settings;
    seeded.seed = CameraSeed(settings);
    server.emplace(seeded, SPortPair{PortOf(rtpSocket), PortOf(rtcpSocket)},
                   content->MakeResponses());
    return {};
}

std::string CVirtualCamera::Start() {
    try {
        thread = std::thread([this] { Run(); });
    } catch (const std::system_error& failure) {
        return "camera \"" + settings.name + "\": cannot start its thread: " + failure.what() +
               " (the limits of threads and of memory: ulimit -u, ulimit -v)";
    }
    return {};
}

void CVirtualCamera::Stop() {
    if (!thread.joinable()) return;
    stopping = true;
    waiter->Wake();
    thread.join();
}

/// A camera that runs out of memory ends the simulator in order, as a signal does.
void CVirtualCamera::Run() {
    try {
        Serve();
    } catch (const std::exception& failure) {
        failureText = "camera \"" + settings.name + "\" failed: " + failure.what();
        platform::RequestStop();
    }
}

void CVirtualCamera::Serve() {
    while (!stopping) {
        Wait();
        const TimePoint now = Clock::now();
        if (watched[RtcpSocket].ready) ServeRtcp(now);
        ServeRtsp(now);
        ServeTree(now);
        AcceptPeers();
        AdvanceStream(Clock::now());
    }
    EndStream();
    rtspPeers.clear();
    treePeers.clear();
}

TimePoint CVirtualCamera::NextDue() const {
    TimePoint due = TimePoint::max();
    const auto consider = [&due](std::optional<TimePoint> other) {
        if (other) due = std::min(due, *other);
    };
    for (const SRtspPeer& peer : rtspPeers) consider(peer.link.nextDue());
    for (const STreePeer& peer : treePeers) consider(peer.link.nextDue());
    if (acceptAfter > Clock::now()) consider(acceptAfter);
    if (stream) consider(SessionDeadline());
    if (stream && stream->playing) {
        consider(stream->media->nextDue());
        consider(RtcpDeadline());
    }
    return due;
}

std::optional<TimePoint> CVirtualCamera::RtcpDeadline() const {
    if (settings.rtcpTimeoutSeconds <= 0 || !stream->playing) return std::nullopt;
    return stream->lastHeard + Duration(settings.rtcpTimeoutSeconds);
}

std::optional<TimePoint> CVirtualCamera::SessionDeadline() const {
    if (settings.sessionTimeoutSeconds == 0) return std::nullopt;
    return stream->lastAlive + std::chrono::seconds(settings.sessionTimeoutSeconds);
}

void CVirtualCamera::Wait() {
    watched.clear();
    const bool accepts = acceptAfter <= Clock::now();
    watched.push_back({rtspListener.handle(), accepts});
    watched.push_back({treeListener.handle(), accepts});
    watched.push_back({rtcpSocket.handle()});
    const auto watch = [this](const CPeer& peer) {
        watched.push_back({peer.handle(), !peer.closeRequested(), peer.blockedOnSend()});
    };
    for (const SRtspPeer& peer : rtspPeers) watch(peer.link);
    for (const STreePeer& peer : treePeers) watch(peer.link);

    const TimePoint due = NextDue();
    std::optional<std::chrono::nanoseconds> limit;
    if (due != TimePoint::max()) limit = due - Clock::now();
    waiter->Wait(watched, limit);
}

bool CVirtualCamera::HasSession(const SRtspPeer& peer) const {
    return server->session() && server->session()->connection == peer.id;
}

/// Closes the longest idle connection without a session, preferably one that never sent anything.
/// Returns false if there is none. Idle connections must not keep a client out.
template <class Peer>
bool CVirtualCamera::CloseIdlest(std::list<Peer>& peers) {
    auto idlest = peers.end();
    for (auto peer = peers.begin(); peer != peers.end(); ++peer) {
        if (HasSession(*peer)) continue;
        if (idlest == peers.end() || peer->lastHeard < idlest->lastHeard) idlest = peer;
    }
    if (idlest == peers.end()) return false;
    peers.erase(idlest);
    return true;
}

/// Accepts the waiting connections, passes each to `add`, and closes idle ones to make room.
template <class Peer, class Add>
void CVirtualCamera::AcceptFrom(const platform::CSocket& listener, std::list<Peer>& peers,
                                Add add) {
    platform::SAccepted accepted = platform::Accept(listener);
    for (; accepted.socket.valid(); accepted = platform::Accept(listener)) {
        if (peers.size() == maxPeers) (void)CloseIdlest(peers);
        add(CPeer(std::move(accepted)));
    }
    if (!accepted.lacksDescriptor) return;
    if (!CloseIdlest(rtspPeers) && !CloseIdlest(treePeers)) {
        acceptAfter = Clock::now() + acceptPause;
    }
}

void CVirtualCamera::AcceptPeers() {
    if (watched[RtspListener].ready) {
        AcceptFrom(rtspListener, rtspPeers, [this](CPeer link) {
            rtspPeers.push_back({++lastConnection, std::move(link), {}});
        });
    }
    if (watched[TreeListener].ready) {
        AcceptFrom(treeListener, treePeers, [this](CPeer link) {
            treePeers.push_back({std::move(link), {}});
        });
    }
}

void CVirtualCamera::ServeRtsp(TimePoint now) {
    for (auto peer = rtspPeers.begin(); peer != rtspPeers.end();) {
        if (ServeRtspPeer(*peer, now) && peer->link.Flush(now) && !peer->link.done()) {
            ++peer;
            continue;
        }
        server->ConnectionClosed(peer->id);
        FollowSession(now, peer->link.remote());
        peer = rtspPeers.erase(peer);
    }
}

bool CVirtualCamera::ServeRtspPeer(SRtspPeer& peer, TimePoint now) {
    if (peer.link.closeRequested()) return true;
    const auto bytes = peer.link.Receive();
    if (!bytes) return false;
    if (!bytes->empty()) peer.lastHeard = now;
    if (bytes->empty() || settings.Has(EQuirk::Silent)) return true;
    peer.reader.Feed(*bytes);
    SRtspRequest request;
    for (;;) {
        switch (peer.reader.Next(request)) {
            case ERtspRead::NeedMore:
                return true;
            case ERtspRead::Request:
                QueueResponse(peer, server->Respond(peer.id, request), now);
                FollowSession(now, peer.link.remote());
                if (stream && HasSession(peer)) stream->lastAlive = now;
                break;
            case ERtspRead::Malformed:
                QueueResponse(peer, server->Refuse(request), now);
                break;
            case ERtspRead::Broken:
                QueueResponse(peer, server->Refuse(request), now);
                peer.link.CloseWhenSent();
                return true;
        }
    }
}

void CVirtualCamera::QueueResponse(SRtspPeer& peer, SRtspResponse response, TimePoint now) const {
    const TimePoint due = settings.Has(EQuirk::LateAnswers) ? now + lateBy : now;
    if (settings.Has(EQuirk::SplitBody)) {
        const std::size_t half = response.body.size() / 2;
        peer.link.Queue(response.head + response.body.substr(0, half), due);
        peer.link.Queue(response.body.substr(half), due + splitBy);
        return;
    }
    // In one piece, because some clients read the body by a single receive.
    peer.link.Queue(response.head + response.body, due);
}

void CVirtualCamera::ServeTree(TimePoint now) {
    const double before = tree.frequency();
    std::erase_if(treePeers, [&](STreePeer& peer) { return !ServeTreePeer(peer, now); });
    if (tree.frequency() != before && stream) stream->media->SetRate(TrueRate(), now);
}

double CVirtualCamera::TrueRate() const {
    return settings.Has(EQuirk::HalfRate) ? tree.frequency() / 2 : tree.frequency();
}

bool CVirtualCamera::ServeTreePeer(STreePeer& peer, TimePoint now) {
    const auto bytes = peer.link.Receive();
    if (!bytes) return false;
    if (!bytes->empty()) peer.lastHeard = now;
    peer.link.Queue(peer.reader.Feed(*bytes, tree), now);
    return peer.link.Flush(now) && !peer.reader.broken();
}

void CVirtualCamera::ServeRtcp(TimePoint now) {
    std::array<std::uint8_t, maxRtcpBytes> datagram;
    for (;;) {
        SSocketAddress from;
        const auto received = platform::ReceiveDatagramFrom(rtcpSocket, datagram, from);
        if (!received) return;
        if (!stream) continue;  // a late report about a stream that has ended
        if (!SameAddress(from, stream->clientRtcp)) {
            ++stream->unknownSenders;
            continue;
        }
        ReadRtcp(std::span(datagram).first(*received), now);
    }
}

void CVirtualCamera::ReadRtcp(std::span<const std::uint8_t> datagram, TimePoint now) {
    const SRtcpTally& tally = stream->rtcp.tally();
    const std::uint64_t blocksBefore = tally.blocks;
    if (stream->rtcp.Read(datagram, stream->media->SentSoFar(NtpNow()))) {
        stream->lastHeard = stream->lastAlive = now;
    }
    if (tally.blocks == blocksBefore) return;
    stream->lostOfReported = stream->media->LostUpTo(tally.last->highestSequence);
}

/// Brings the stream in line with the server's session. `client` is the address of the request.
void CVirtualCamera::FollowSession(TimePoint now, const SSocketAddress& client) {
    const auto& session = server->session();
    if (stream && (!session || session->serial != stream->sessionSerial)) EndStream();
    if (!session) return;
    if (!stream) BeginStream(*session, now, client);
    if (session->playing == stream->playing) return;
    stream->playing = session->playing;
    if (session->playing) {
        stream->media->Play(now);
        stream->lastHeard = now;
    } else {
        stream->media->Pause(toOutbox);
        outbox.Flush();
    }
}

void CVirtualCamera::BeginStream(const SRtspSession& session, TimePoint now,
                                 const SSocketAddress& client) {
    auto media = content->MakeStream(session, TrueRate(), now);
    const CRtcpReader rtcp(media->ssrc());
    const SSocketAddress clientRtp = WithPort(client, session.clientRtpPort);
    outbox.Aim(rtpSocket, clientRtp, media->maxDatagramBytes());
    stream.emplace(SRunningStream{session.serial, std::move(media), rtcp, clientRtp,
                                  WithPort(client, session.clientRtcpPort)});
    stream->refusedBefore = outbox.refused();
}

void CVirtualCamera::EndStream(const std::string& reason) {
    if (!stream) return;
    ServeRtcp(
        Clock::now());  // the last report, which the receiver sent just before it ended the session
    if (stream->playing) stream->media->Pause(toOutbox);
    outbox.Flush();
    SStreamSummary summary;
    summary.camera = settings.address + " \"" + settings.name + "\"";
    summary.number = stream->sessionSerial;
    summary.video = stream->media->tally();
    summary.refusedDatagrams = outbox.refused() - stream->refusedBefore;
    summary.senderReports = stream->reportsSent;
    summary.rtcp = stream->rtcp.tally();
    summary.lostOfReported = stream->lostOfReported;
    summary.endReason = reason;
    summary.unknownSenders = stream->unknownSenders;
    if (endedStreams.size() == maxSummaries) endedStreams.erase(endedStreams.begin());
    endedStreams.push_back(FormatSummary(summary));
    stream.reset();
}

void CVirtualCamera::EndIfSilent(TimePoint now) {
    const auto passed = [now](std::optional<TimePoint> end) { return end && now >= *end; };
    std::string reason;
    if (passed(RtcpDeadline())) {
        reason = "ended because no RTCP came from its receiver for " +
                 SecondsText(settings.rtcpTimeoutSeconds);
    } else if (passed(SessionDeadline())) {
        reason = "ended because neither a request nor RTCP came from its receiver for " +
                 SecondsText(settings.sessionTimeoutSeconds);
    } else {
        return;
    }
    server->GiveUpSession();
    EndStream(reason);
}

void CVirtualCamera::AdvanceStream(TimePoint now) {
    if (stream) EndIfSilent(now);
    if (!stream || !stream->playing) return;
    stream->media->Advance(now, toOutbox);
    outbox.Flush();
    if (const auto report = stream->media->Report(now, NtpNow())) SendReport(*report);
}

void CVirtualCamera::SendReport(const SOutgoingReport& report) {
    (void)platform::SendDatagram(rtcpSocket.handle(), report.bytes.data(), report.bytes.size(),
                                 stream->clientRtcp);
    stream->rtcp.NoteSenderReport(report.ntp);
    ++stream->reportsSent;
}

}  // namespace korusim
