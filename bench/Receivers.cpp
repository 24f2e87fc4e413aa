#include "Receivers.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "RtpReceiver.h"
#include "Sender.h"

namespace bench {
namespace {

using Arguments = std::vector<std::string>;

/// The same size as the plug-in requests: eight times the system's default.
int RaisedReceiveBuffer(int descriptor) {
    int bytes = 0;
    socklen_t size = sizeof(bytes);
    (void)::getsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, &size);
    return 8 * bytes;
}

int DefaultReceiveBufferTimes8() {
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
    const int bytes = RaisedReceiveBuffer(descriptor);
    ::close(descriptor);
    return bytes;
}

/// The least that a program can do to get frames into memory. It knows where the payload begins,
/// and examines only the marker.
void ReceivePlainly(SBoard& board, std::size_t headerBytes, std::size_t frameMost) {
    constexpr std::size_t datagramMost = 16384;
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    const int bufferBytes = RaisedReceiveBuffer(descriptor);
    if (::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &bufferBytes, sizeof(int)) != 0) {
        (void)::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bufferBytes, sizeof(int));
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t size = sizeof(address);
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), size) != 0) return;
    (void)::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    alignas(4096) static std::uint8_t datagram[datagramMost];
    const std::unique_ptr<std::uint8_t[]> frame(new std::uint8_t[frameMost]);
    std::size_t fill = 0;
    board.port = ntohs(address.sin_port);
    for (;;) {
        const ssize_t received =
            ::recvfrom(descriptor, datagram, datagramMost, MSG_TRUNC, nullptr, nullptr);
        if (received <= static_cast<ssize_t>(headerBytes)) return;
        const std::size_t payload = static_cast<std::size_t>(received) - headerBytes;
        std::memcpy(frame.get() + fill, datagram + headerBytes, payload);
        fill += payload;
        if ((datagram[1] & 0x80) == 0) continue;
        board.frameAt = Now();
        board.bytes += fill;
        ++board.frames;
        fill = 0;
    }
}

void CountFrame(void* context, const std::uint8_t*, std::uint32_t length) {
    auto& board = *static_cast<SBoard*>(context);
    board.frameAt = Now();
    board.bytes += length;
    ++board.frames;
}

void ReceiveByPlugin(SBoard& board, const char* streamName) {
    constexpr std::uint16_t discard = 9;
    qmx::cam::CRtpReceiver receiver;
    if (!receiver.CreateSockets() || !receiver.SetServerAddress("127.0.0.1", discard) ||
        !receiver.Start(streamName, CountFrame, &board)) {
        return;
    }
    board.port = receiver.GetRtpPort();
    PauseForEver();
}

void Execute(const Arguments& arguments) {
    std::vector<char*> words;
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ::dup2(nowhere, STDIN_FILENO);
    ::dup2(nowhere, STDOUT_FILENO);
    ::dup2(nowhere, STDERR_FILENO);
    ::execvp(words[0], words.data());
}

std::string SizeFields(const SStreamPlan& plan, const char* width, const char* height,
                       const char* between) {
    return width + std::to_string(plan.size.width) + between + height +
           std::to_string(plan.size.height);
}

Arguments GStreamerCommand(const SStreamPlan& plan, std::uint16_t port, std::size_t packetBytes,
                           std::uint64_t frames) {
    std::string caps = "caps=application/x-rtp,media=video,clock-rate=90000,payload=" +
                       std::to_string(plan.payloadType());
    const bool raw = plan.encoding == korusim::EEncoding::Raw;
    caps += raw ? ",encoding-name=RAW,sampling=YCbCr-4:2:2,depth=(string)8," +
                      SizeFields(plan, "width=(string)", "height=(string)", ",")
                : ",encoding-name=JPEG";
    return {"gst-launch-1.0",
            "-q",
            "udpsrc",
            "port=" + std::to_string(port),
            "buffer-size=" + std::to_string(DefaultReceiveBufferTimes8()),
            "mtu=" + std::to_string(packetBytes),
            caps,
            "!",
            raw ? "rtpvrawdepay" : "rtpjpegdepay",
            "!",
            "fakesink",
            "num-buffers=" + std::to_string(frames)};
}

std::string SdpFile(std::uint16_t port) {
    return std::filesystem::temp_directory_path() / ("bench-" + std::to_string(port) + ".sdp");
}

Arguments FfmpegCommand(const SStreamPlan& plan, std::uint16_t port, std::uint64_t frames) {
    const std::string file = SdpFile(port);
    std::ofstream sdp(file);
    const std::string type = std::to_string(plan.payloadType());
    sdp << "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=bench\nc=IN IP4 127.0.0.1\nt=0 0\nm=video " << port
        << " RTP/AVP " << type << "\n";
    if (plan.encoding == korusim::EEncoding::Raw) {
        sdp << "a=rtpmap:" << type << " raw/90000\na=fmtp:" << type << " sampling=YCbCr-4:2:2; "
            << SizeFields(plan, "width=", "height=", "; ") << "; depth=8; colorimetry=BT709-2\n";
    }
    return {"ffmpeg",       "-nostdin",     "-protocol_whitelist",
            "file,udp,rtp", "-buffer_size", std::to_string(DefaultReceiveBufferTimes8()),
            "-i",           file,           "-c",
            "copy",         "-frames:v",    std::to_string(frames),
            "-f",           "null",         "-"};
}

bool IsInstalled(const char* program) {
    return std::system((std::string("command -v ") + program + " >/dev/null").c_str()) == 0;
}

/// The processor of the receivers. A sender at another place uses the other one.
int ReceiverProcessor() { return static_cast<int>(std::thread::hardware_concurrency()) - 1; }

void RunOn(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<unsigned>(processor), &set);
    (void)::sched_setaffinity(0, sizeof(set), &set);
}

void PlaceReceiver(EPlace place) {
    RunOn(ReceiverProcessor());
    // A thread of this scheduling class does not interrupt others when a datagram wakes it.
    const sched_param none{};
    if (place == EPlace::SameProcessor) (void)::sched_setscheduler(0, SCHED_BATCH, &none);
}

/// Returns a port for a peer; the next one is for its RTCP. The network namespace leaves all ports
/// free.
std::uint16_t NextPort() {
    static std::uint16_t port = 20000;
    return port = static_cast<std::uint16_t>(port + 10);
}

void WaitFor(const std::function<bool()>& condition, const char* complaint) {
    using namespace std::chrono_literals;
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) throw std::runtime_error(complaint);
        std::this_thread::sleep_for(2ms);
    }
}

}  // namespace

void PlaceSender(EPlace place) { RunOn(place == EPlace::SameProcessor ? ReceiverProcessor() : 0); }

void PauseForEver() {
    for (;;) ::pause();
}

std::int64_t Now() noexcept {
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

CChild::CChild(EPlace place, const std::function<void()>& body) : process(::fork()) {
    if (process < 0) throw std::runtime_error("cannot create a process for a receiver");
    if (process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        PlaceReceiver(place);
        body();
        std::_Exit(1);
    }
    ::clock_getcpuclockid(process, &clock);
}

CChild::~CChild() {
    if (process < 0) return;
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
}

std::chrono::nanoseconds CChild::cpuTime() const {
    timespec time{};
    if (::clock_gettime(clock, &time) != 0) throw std::runtime_error("a receiver has ended");
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::uint64_t CChild::residentBytes() const {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    constexpr std::uint64_t kilo = 1024;
    for (std::string word; status >> word;) {
        if (word != "VmRSS:") continue;
        std::uint64_t kilobytes = 0;
        status >> kilobytes;
        return kilo * kilobytes;
    }
    return 0;
}

bool CChild::WaitForEnd() {
    using namespace std::chrono_literals;
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (::waitpid(process, nullptr, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(5ms);
    }
    process = -1;
    return true;
}

void* ShareBytes(std::size_t bytes) {
    void* const memory =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    return memory;
}

void UnshareBytes(void* memory, std::size_t bytes) noexcept { ::munmap(memory, bytes); }

const char* NameOf(EReceiver kind) noexcept {
    constexpr std::array<const char*, 5> names{"plain loop", "plain, threads", "plug-in",
                                               "GStreamer", "FFmpeg"};
    return names[static_cast<std::size_t>(kind)];
}

bool CanTake(EReceiver kind, const SStreamPlan& plan) {
    if (!IsPeer(kind)) return true;
    static const bool gstreamer = IsInstalled("gst-launch-1.0");
    static const bool ffmpeg = IsInstalled("ffmpeg");
    return (kind == EReceiver::GStreamer ? gstreamer : ffmpeg) &&
           plan.encoding != korusim::EEncoding::Mjls;
}

CReceiver::CReceiver(EReceiver receiver, EPlace place, const SStreamPlan& plan,
                     const CPacketStream& stream, std::uint64_t framesExpected)
    : receiverKind(receiver), expected(framesExpected), shared(Share<SBoard>()) {
    if (!IsPeer(receiver)) {
        child = std::make_unique<CChild>(place, [&] {
            if (receiver == EReceiver::Plugin) ReceiveByPlugin(*shared, plan.streamName());
            std::thread idle;
            if (receiver == EReceiver::PlainAmongThreads) idle = std::thread(PauseForEver);
            ReceivePlainly(*shared, plan.headerBytes(), stream.maxFrameBytes());
        });
        WaitFor([&] { return shared->port != 0; }, "a receiver does not open its socket");
        udpPort = shared->port;
        return;
    }
    udpPort = NextPort();
    const Arguments command =
        receiver == EReceiver::GStreamer
            ? GStreamerCommand(plan, udpPort, stream.maxPacketBytes(), expected)
            : FfmpegCommand(plan, udpPort, expected);
    child = std::make_unique<CChild>(place, [&] { Execute(command); });
    WaitFor([&] { return QueueOf(udpPort).found; }, "a peer does not open its socket");
    if (receiver == EReceiver::Ffmpeg) std::filesystem::remove(SdpFile(udpPort));
}

bool CReceiver::HasDeliveredAll() {
    if (QueueOf(udpPort).dropped != 0) return false;
    return IsPeer(receiverKind) ? child->WaitForEnd() : shared->frames == expected;
}

}  // namespace bench
