// Whole sessions: the RTSP client and the receiver with its threads, called in any order, with a
// scripted camera and network. No closed handle is used, none remains open, every request and
// report is well formed, and no callback comes outside a run.
//
// Input: 1 byte for each call, followed by the data for the call or for the response of the camera.
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>

#include "FrameLimit.h"
#include "FuzzInput.h"
#include "RtpReceiver.h"
#include "RtspClient.h"

namespace {

using platform::SocketHandle;

/// The network: the open sockets, each with its waiting datagrams.
class CNetwork {
   public:
    struct SSocket {
        std::deque<fuzz::ExactBytes> waiting;
        bool woken = false;
    };

    /// Changes the sockets under the lock.
    template <class Action>
    auto Change(Action action) {
        const std::lock_guard<std::mutex> guard(lock);
        changed.notify_all();
        return action();
    }
    SocketHandle Open() {
        if (refuseNext) return platform::invalidSocket;
        return Change([&] { return sockets.try_emplace(++lastHandle).first->first; });
    }
    std::ptrdiff_t ReceiveDatagram(SocketHandle handle, void* buffer, std::size_t size) {
        std::unique_lock<std::mutex> guard(lock);
        changed.wait(guard, [&] { return At(handle).woken || !At(handle).waiting.empty(); });
        if (At(handle).waiting.empty()) return 0;
        const fuzz::ExactBytes datagram = std::move(At(handle).waiting.front());
        At(handle).waiting.pop_front();
        changed.notify_all();
        // An empty one would end the reception, so it becomes a failed receive.
        if (datagram.empty() || datagram.size() > size) return -1;
        std::copy(datagram.begin(), datagram.end(), static_cast<std::uint8_t*>(buffer));
        return static_cast<std::ptrdiff_t>(datagram.size());
    }
    /// Waits until all datagrams have been received.
    void Drain() {
        std::unique_lock<std::mutex> guard(lock);
        changed.wait(guard, [&] {
            return std::ranges::all_of(
                sockets, [](const auto& entry) { return entry.second.waiting.empty(); });
        });
    }
    SSocket& At(SocketHandle handle) {
        const auto found = sockets.find(handle);
        FUZZ_REQUIRE(found != sockets.end());
        return found->second;
    }

    std::mutex lock;
    std::condition_variable changed;
    std::map<SocketHandle, SSocket> sockets;
    SocketHandle lastHandle = 0;
    bool refuseNext = false;
    fuzz::CFuzzInput* camera = nullptr;  // the next responses of the camera
    std::string answers;                 // sent by the camera and not yet received
};

CNetwork* network = nullptr;

std::string Text(std::span<const std::uint8_t> bytes) { return std::string(fuzz::AsText(bytes)); }

/// Returns the response to a request: a valid one, one with more headers or a body, or any bytes.
std::string Answer(const std::string& request) {
    fuzz::CFuzzInput& input = *network->camera;
    const auto kind = input.Take<std::uint8_t>();
    const std::size_t cseqAt = request.find("CSeq: ");
    const std::size_t cseqEnd = request.find("\r\n", cseqAt);
    std::string head = "RTSP/1.0 200 OK\r\n" + request.substr(cseqAt, cseqEnd - cseqAt) + "\r\n";
    switch (kind % 4) {
        case 0:
            return head + "Session: s\r\nTransport: server_port=7000-7001\r\n\r\n";
        case 1:
            return head + Text(input.TakeBytes(input.Take<std::uint8_t>())) + "\r\n\r\n";
        case 2: {
            const std::string body = "v=0\n" + Text(input.TakeBytes(input.Take<std::uint8_t>()));
            return head + "Content-Type: application/sdp\r\nContent-Length: " +
                   std::to_string(body.size()) + "\r\n\r\n" + body;
        }
        default:
            return Text(input.TakeBytes(input.Take<std::uint8_t>()));
    }
}

}  // namespace

namespace platform {

std::uint16_t NetworkOrder(std::uint16_t value) noexcept {
    return static_cast<std::uint16_t>(value << 8 | value >> 8);
}
SSocketAddress MakeSocketAddress(std::uint32_t address, std::uint16_t port) noexcept {
    return {familyIpv4, NetworkOrder(port), address};
}
std::optional<std::uint32_t> ResolveIpv4(const char* text) noexcept {
    if (*text == '\0') return std::nullopt;
    return 0x0100007F;
}
bool HostName(char* buffer, std::size_t size) noexcept {
    std::fill_n(buffer, size, 'n');
    buffer[size - 1] = '\0';
    return true;
}
SocketHandle OpenTcpSocket() noexcept { return network->Open(); }
SocketHandle OpenUdpSocket() noexcept { return network->Open(); }
void CloseSocket(SocketHandle handle) noexcept {
    network->Change([&] { FUZZ_REQUIRE(network->sockets.erase(handle) == 1); });
}
bool ConnectSocket(SocketHandle handle, const SSocketAddress& to) noexcept {
    network->At(handle);
    network->answers.clear();
    return to.port != 0;
}
bool BindToAnyPort(SocketHandle handle) noexcept { return network->At(handle).waiting.empty(); }
std::optional<std::uint16_t> LocalPort(SocketHandle handle) noexcept {
    return static_cast<std::uint16_t>(handle);
}
std::ptrdiff_t Send(SocketHandle handle, const void* data, std::size_t size) noexcept {
    if (handle == invalidSocket) return -1;
    network->At(handle);
    const std::string request(static_cast<const char*>(data), size);
    FUZZ_REQUIRE(request.ends_with("\r\n\r\n") && request.find("CSeq: ") != std::string::npos);
    network->answers += Answer(request);
    return static_cast<std::ptrdiff_t>(size);
}
std::ptrdiff_t Receive(SocketHandle handle, void* buffer, std::size_t size) noexcept {
    network->At(handle);
    size = std::min(size, network->answers.size());
    std::copy_n(network->answers.begin(), size, static_cast<char*>(buffer));
    network->answers.erase(0, size);
    return static_cast<std::ptrdiff_t>(size);
}
std::ptrdiff_t SendDatagram(SocketHandle handle, const void* data, std::size_t size,
                            const SSocketAddress&) noexcept {
    const std::lock_guard<std::mutex> guard(network->lock);
    network->At(handle);
    FUZZ_REQUIRE(size % 4 == 0 && *static_cast<const std::uint8_t*>(data) >> 6 == 2);
    return static_cast<std::ptrdiff_t>(size);
}
std::ptrdiff_t ReceiveDatagram(SocketHandle handle, void* buffer, std::size_t size) noexcept {
    return network->ReceiveDatagram(handle, buffer, size);
}
bool SetReceiveTimeout(SocketHandle, std::uint32_t) noexcept { return false; }
std::optional<std::int32_t> ReceiveBufferSize(SocketHandle) noexcept { return 0x7FFFFFFF; }
bool SetReceiveBufferSize(SocketHandle, std::int32_t bytes) noexcept { return bytes > 0; }
void CancelReceives(SocketHandle handle) noexcept {
    network->Change([&] { network->At(handle).woken = true; });
}

}  // namespace platform

namespace {

using namespace qmx::cam;

void CallClient(CRtspClient& client, unsigned call, fuzz::CFuzzInput& input) {
    const bool wasSetUp = client.IsSetUp();
    const bool wasPlaying = client.IsPlaying();
    const std::string path = "/" + std::to_string(call);
    switch (call % 7) {
        case 0:
            (void)client.Connect("camera", input.Take<std::uint8_t>());
            break;
        case 1:
            (void)client.Describe(path.c_str());
            break;
        case 2:
            if (client.Setup(path.c_str(), "/control", 1, 2)) {
                FUZZ_REQUIRE(!wasSetUp && client.IsSetUp() && client.GetServerRtpPort() != 0);
            }
            break;
        case 3:
            if (client.Play()) FUZZ_REQUIRE(wasSetUp && !wasPlaying && client.IsPlaying());
            break;
        case 4:
            if (client.Pause()) FUZZ_REQUIRE(wasPlaying && !client.IsPlaying());
            break;
        case 5:
            if (client.Teardown()) FUZZ_REQUIRE(wasSetUp && !client.IsSetUp());
            break;
        default:
            client.Close();
    }
}

/// The host. Its callback may be called only during a run.
struct SHost {
    CRtpReceiver receiver;
    std::atomic<bool> running{false};
    SocketHandle rtp = platform::invalidSocket;
    fuzz::EStreamType type = fuzz::EStreamType::None;  // of the run

    static void Callback(void* context, const std::uint8_t* frame, std::uint32_t length) {
        FUZZ_REQUIRE(static_cast<SHost*>(context)->running);
        if (length == 0) return;
        const volatile std::uint8_t last = frame[length - 1];  // read for the sanitizers
        if (last % 8 == 1) throw std::uint8_t{last};
    }
    static void Deliver(SocketHandle handle, fuzz::ExactBytes datagram) {
        network->Change([&] {
            const auto socket = network->sockets.find(handle);
            if (socket == network->sockets.end()) return;
            socket->second.waiting.push_back(std::move(datagram));
        });
    }
    void Call(unsigned call, fuzz::CFuzzInput& input) {
        auto bytes =
            fuzz::ExactCopy(input.TakeBytes(call % 7 > 4 ? input.Take<std::uint8_t>() : 0));
        switch (call % 7) {
            case 0:
                network->refuseNext = call > 200;
                if (receiver.CreateSockets()) rtp = network->lastHandle - 1;
                network->refuseNext = false;
                return;
            case 1:
                (void)receiver.SetServerAddress(call < 128 ? "camera" : "", 9);
                return;
            case 2:
            case 3: {
                constexpr const char* names[] = {"ZRAW", "MJLS", "MJPG", "JPEG"};
                const bool before = running.exchange(true);
                const bool started = receiver.Start(names[call / 7 % 4], Callback, this);
                FUZZ_REQUIRE(!started || (!before && call / 7 % 4 != 3));
                running = before || started;
                if (started) type = static_cast<fuzz::EStreamType>(1 + call / 7 % 4);
                return;
            }
            case 4:
                // The threads receive everything, because no empty datagram can end them here.
                if (running) network->Drain();
                call % 2 == 0 ? (void)receiver.Stop() : receiver.Reset();
                running = false;
                return;
            default:
                // To the RTP socket or to the RTCP socket, which has the next handle.
                if (call % 7 == 5) fuzz::KeepFrameSmall(bytes, type);
                if (running) Deliver(rtp + call % 7 - 5, std::move(bytes));
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::CFuzzInput input(data, size);
    CNetwork scripted;
    scripted.camera = &input;
    network = &scripted;
    {
        CRtspClient client;
        SHost host;
        for (int calls = 0; calls < 64 && !input.empty(); ++calls) {
            const auto call = input.Take<std::uint8_t>();
            call % 2 == 0 ? CallClient(client, call / 2, input) : host.Call(call / 2, input);
        }
        if (host.running) network->Drain();
    }
    FUZZ_REQUIRE(scripted.sockets.empty());
    return 0;
}
