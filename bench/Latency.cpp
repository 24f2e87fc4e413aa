// Measures the time from the last datagram of a frame to its delivery, and from the start of a
// stream to its first frame, without the time that the camera and the system need.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <exception>
#include <string>
#include <thread>

#include "Figures.h"
#include "KORURTSPInterface.h"
#include "PacketStream.h"
#include "PixelTypes.h"
#include "Receivers.h"
#include "Sender.h"

namespace {

using namespace bench;
using namespace std::chrono_literals;

constexpr double nanosecondsPerMicrosecond = 1000;

void PrintSpread(const char* what, const SSpread& spread) {
    std::printf("  %-44s %9.1f %9.1f..%9.1f\n", what, spread.median, spread.least, spread.most);
}

// --- From the last datagram to the callback ---------------------------------------------------

/// Sends a frame at 1 Gbit/s. Returns the microseconds from the call that sends its last datagram
/// until the receiver has the frame.
double TimeFrame(CPacketStream& stream, CSender& sender, const CReceiver& receiver) {
    constexpr auto interval = 11us;
    const auto packets = stream.NextFrame();
    const std::uint64_t before = receiver.board().frames;
    sender.SendPaced(packets.first(packets.size() - 1), interval);
    std::this_thread::sleep_for(
        1ms);  // lets the receiver fall asleep, as between the datagrams of a camera
    const std::int64_t sent = Now();
    sender.SendBurst(packets.last(1));
    const std::int64_t limit = sent + std::chrono::nanoseconds(2s).count();
    while (receiver.board().frames == before) {
        if (Now() > limit) throw std::runtime_error("a frame does not arrive");
    }
    return static_cast<double>(receiver.board().frameAt - sent) / nanosecondsPerMicrosecond;
}

Json TimeFrames(unsigned frames) {
    const SStreamPlan plan = ComparedStreams().front();
    CPacketStream stream(plan);
    CReceiver plain(EReceiver::PlainAmongThreads, EPlace::OtherProcessor, plan, stream, 0);
    CReceiver plugin(EReceiver::Plugin, EPlace::OtherProcessor, plan, stream, 0);
    CSender toPlain(plain.port());
    CSender toPlugin(plugin.port());
    PlaceSender(EPlace::OtherProcessor);
    std::vector<double> plainTimes;
    std::vector<double> pluginTimes;
    for (unsigned i = 0; i < frames; ++i) {
        plainTimes.push_back(TimeFrame(stream, toPlain, plain));
        pluginTimes.push_back(TimeFrame(stream, toPlugin, plugin));
    }
    std::printf("From the last datagram to the frame, in microseconds: median, min..max\n");
    PrintSpread("plain loop: the system's delivery and wake-up", SpreadOf(plainTimes));
    PrintSpread("plug-in, in its callback", SpreadOf(pluginTimes));
    return {{"plainMicroseconds", SpreadOf(plainTimes)},
            {"pluginMicroseconds", SpreadOf(pluginTimes)}};
}

// --- From StartContinuous to the first frame --------------------------------------------------

/// An RTSP camera of one raw format that records the time that it takes itself.
class CSlowCamera {
   public:
    explicit CSlowCamera(const char* address);
    CSlowCamera(const CSlowCamera&) = delete;
    CSlowCamera& operator=(const CSlowCamera&) = delete;
    ~CSlowCamera();

    /// Returns the time spent in the camera since the last call, in nanoseconds: from each request
    /// to its response, and from the response to PLAY to the last datagram of the first frame.
    [[nodiscard]] std::int64_t TakeOwnTime() noexcept { return ownTime.exchange(0); }

   private:
    void Serve();
    void Answer(int connection, const std::string& request);
    void SendFirstFrame();

    int listener;
    std::atomic<std::int64_t> ownTime{0};
    std::uint16_t clientPort = 0;
    CPacketStream stream{ComparedStreams().front()};
    std::thread thread;
};

CSlowCamera::CSlowCamera(const char* address)
    : listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    constexpr std::uint16_t rtspPort = 554;
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(rtspPort);
    local.sin_addr.s_addr = ::inet_addr(address);
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0 ||
        ::listen(listener, 1) != 0) {
        throw std::runtime_error("cannot listen on port 554; run in scripts/private-network");
    }
    thread = std::thread([this] { Serve(); });
}

CSlowCamera::~CSlowCamera() {
    ::shutdown(listener, SHUT_RDWR);
    thread.join();
    ::close(listener);
}

void CSlowCamera::Serve() {
    const int connection = ::accept(listener, nullptr, nullptr);
    std::string request;
    char piece[2048];
    for (ssize_t size = 0; (size = ::recv(connection, piece, sizeof(piece), 0)) > 0;) {
        const std::int64_t received = Now();
        request.append(piece, static_cast<std::size_t>(size));
        if (!request.ends_with("\r\n\r\n")) continue;
        Answer(connection, request);
        if (request.starts_with("PLAY")) SendFirstFrame();
        ownTime += Now() - received;
        request.clear();
    }
    ::close(connection);
}

void CSlowCamera::Answer(int connection, const std::string& request) {
    std::this_thread::sleep_for(10ms);
    const auto valueOf = [&](const std::string& name) {
        const std::size_t at = request.find(name);
        return at == std::string::npos ? 0 : std::stoi(request.substr(at + name.size()));
    };
    if (const int port = valueOf("client_port="); port != 0) {
        clientPort = static_cast<std::uint16_t>(port);
    }
    std::string response = "RTSP/1.0 200 OK\r\nCSeq: " + std::to_string(valueOf("CSeq: ")) +
                           "\r\nSession: 1\r\nTransport: server_port=7000-7001\r\n";
    if (request.starts_with("DESCRIBE")) {
        const std::string body =
            "v=0\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 ZRAW/90000\r\na=framesize:96 640-512\r\n";
        response +=
            "Content-Type: application/sdp\r\nContent-Length: " + std::to_string(body.size()) +
            "\r\n\r\n" + body;
    } else {
        response += "\r\n";
    }
    (void)::send(connection, response.data(), response.size(), MSG_NOSIGNAL);
}

void CSlowCamera::SendFirstFrame() {
    std::this_thread::sleep_for(10ms);
    CSender(clientPort).SendPaced(stream.NextFrame(), 11us);
}

Json TimeStarts(unsigned starts) {
    constexpr const char* address = "127.0.0.21";
    constexpr std::uint32_t streamsOnly = 2;
    CSlowCamera camera(address);
    qmx::cam::CKORURTSPInterface interface;
    const auto device = interface.CreateDevice();
    qmx::cam::SDeviceInfo info = interface.defaultDevice;
    info.parameters["IP"].setValue(address);
    if (!device->Open(info, streamsOnly)) throw std::runtime_error("the device does not open");
    device->SetFormat(640, 512, qmx::cam::priv::pixelTypeRaw);
    std::vector<double> all;
    std::vector<double> beyond;
    for (unsigned i = 0; i < starts; ++i) {
        SBoard board;
        const auto note = [](void* context, const std::uint8_t*, std::uint32_t) {
            static_cast<SBoard*>(context)->frameAt = Now();
        };
        (void)camera.TakeOwnTime();
        const std::int64_t begun = Now();
        if (!device->StartContinuous(note, &board)) throw std::runtime_error("no start");
        while (board.frameAt == 0) std::this_thread::sleep_for(1ms);
        const double took = static_cast<double>(board.frameAt - begun);
        std::this_thread::sleep_for(2ms);  // lets the camera record its time
        all.push_back(took / nanosecondsPerMicrosecond);
        beyond.push_back((took - static_cast<double>(camera.TakeOwnTime())) /
                         nanosecondsPerMicrosecond);
        device->StopContinuous();
    }
    device->Close();
    std::printf("From StartContinuous to the first frame, in microseconds: median, min..max\n");
    PrintSpread("in all", SpreadOf(all));
    PrintSpread("without the time of the camera", SpreadOf(beyond));
    return {{"allMicroseconds", SpreadOf(all)}, {"beyondCameraMicroseconds", SpreadOf(beyond)}};
}

}  // namespace

int main(int argc, char** argv) {
    unsigned frames = 300;
    unsigned starts = 30;
    std::string file;
    CLI::App app("Time from the last datagram to the frame, and from the start to the first frame");
    app.add_option("--frames", frames, "number of frames")->check(CLI::PositiveNumber);
    app.add_option("--starts", starts, "number of starts")->check(CLI::PositiveNumber);
    app.add_option("--json", file, "also write the figures to this file");
    CLI11_PARSE(app, argc, argv);
    try {
        Json figures = {{"frame", TimeFrames(frames)}};
        figures["start"] = TimeStarts(starts);
        if (!file.empty()) Save(figures, file);
        return 0;
    } catch (const std::exception& failure) {
        (void)std::fprintf(stderr, "latency: %s\n", failure.what());
        return 1;
    }
}
