#include "StreamMeter.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "NetworkState.h"
#include "PixelTypeNames.h"
#include "Process.h"
#include "RtspProbe.h"

namespace hostkit {
namespace {

using namespace std::chrono_literals;
using frames::Clock;

constexpr std::chrono::milliseconds tick = 20ms;
constexpr std::uint32_t connectLimit = 2000;  // milliseconds
/// Half a minute at 1000 frames per second; further frames are not recorded.
constexpr std::size_t maxArrivals = 30'000;

/// The context of the frame callback. Must outlive the stream.
class CArrivals {
   public:
    CArrivals() { list.reserve(maxArrivals); }

    static void OnFrame(void* context, const std::uint8_t*, std::uint32_t length) {
        static_cast<CArrivals*>(context)->Add(length);
    }
    /// Returns the arrivals. Call it when the stream has ended.
    [[nodiscard]] const std::vector<SArrival>& all() const noexcept { return list; }

   private:
    void Add(std::uint32_t length) {
        if (list.size() == maxArrivals) return;
        // The last datagram of this frame has just been read.
        list.push_back({Clock::now(), length, platform::UdpCounters().received});
    }

    std::vector<SArrival> list;
};

struct SCounters {
    platform::SUdpCounters udp = platform::UdpCounters();
    platform::SInterfaceCounters network;

    explicit SCounters(const platform::SRoute& route)
        : network(platform::InterfaceCounters(route)) {}
};

std::optional<std::uint64_t> StepOf(const std::optional<std::uint64_t>& before,
                                    const std::optional<std::uint64_t>& after) {
    if (!before || !after) return std::nullopt;
    return *after - *before;
}

SCounterSteps StepsOf(const SCounters& before, const SCounters& after) {
    return {StepOf(before.udp.received, after.udp.received),
            StepOf(before.udp.dropped, after.udp.dropped),
            StepOf(before.network.received, after.network.received),
            StepOf(before.network.dropped, after.network.dropped)};
}

/// Waits until `ended`, which is asked twice a second, returns true. Counts only ticks, so that
/// time in which this program did not run is added at the end. Returns the seconds that were
/// counted.
template <class Ended>
double WaitTicks(double seconds, CStallWatch& stalls, Ended ended) {
    constexpr auto ticksPerLook = 500ms / tick;
    const auto ticks =
        static_cast<std::uint64_t>(seconds / std::chrono::duration<double>(tick).count());
    std::uint64_t done = 0;
    for (; done < ticks && !platform::StopRequested(); ++done) {
        if (done % ticksPerLook == ticksPerLook - 1 && ended()) break;
        stalls.BeginWait(tick);
        std::this_thread::sleep_for(tick);
        stalls.EndWait();
    }
    return std::chrono::duration<double>(done * tick).count();
}

}  // namespace

std::optional<double> PromisedRate(const COpenCamera& camera,
                                   const qmx::cam::IDevice::SFormat& format) {
    qmx::CVariant value;
    if (format.pixelType != frames::rawType || !camera->properties.get("/FrameRate", value)) {
        return std::nullopt;
    }
    const double rate = value.ToFlt64();
    return rate > 0 ? std::optional(rate) : std::nullopt;
}

SRefusal WhyNotStarted(const COpenCamera& camera, const qmx::cam::IDevice::SFormat& format) {
    camera->Close();  // ends the session, if there is one
    auto refusal = StreamRefusal(camera.address(), frames::TypeName(format.pixelType), format.width,
                                 format.height);
    if (refusal) return *refusal;
    return {"the plug-in could not start it, although the camera agrees to SETUP and PLAY",
            "the line of the log above names the step"};
}

bool DatagramsStayUnread() {
    constexpr int samples = 6;
    double before = 0;
    for (int i = 0; i < samples; ++i) {
        if (i != 0) std::this_thread::sleep_for(10ms);
        const double filled = platform::ReceiveBuffers().filled.value_or(0);
        if (filled <= 0 || filled < before) return false;
        before = filled;
    }
    return true;
}

SBackground MeasureBackground(const platform::SRoute& route) {
    constexpr double samplesPerSecond = 2;
    const SCounters before(route);
    std::this_thread::sleep_for(500ms);
    const SCounterSteps steps = StepsOf(before, SCounters(route));
    return {samplesPerSecond * static_cast<double>(steps.datagrams.value_or(0)),
            samplesPerSecond * static_cast<double>(steps.interfacePackets.value_or(0))};
}

SStreamMeasurement MeasureStream(COpenCamera& camera, const qmx::cam::IDevice::SFormat& format,
                                 double seconds, const platform::SRoute& route) {
    SStreamMeasurement result;
    const std::string type = frames::TypeName(format.pixelType);
    result.format = std::to_string(format.width) + "x" + std::to_string(format.height) + " " + type;
    result.rawBytes = std::uint64_t{format.width} * format.height * 2;
    result.raw = type == "raw";
    result.promisedRate = PromisedRate(camera, format);
    CArrivals arrivals;
    (void)camera->SetFormat(format.width, format.height, format.pixelType);  // always true
    if (!camera->StartContinuous(CArrivals::OnFrame, &arrivals)) {
        result.refusal = WhyNotStarted(camera, format);
        return result;
    }
    const SCounters before(route);
    const auto connected = [&] { return platform::IsConnectedTo(camera.address(), rtspPort); };
    const bool controlSeen = connected() == true;
    CStallWatch stalls;
    result.seconds = WaitTicks(seconds, stalls, [&] {
        // A camera that closes its connection may still send.
        const bool closedBefore =
            std::exchange(result.controlClosed, controlSeen && connected() == false);
        return closedBefore && result.controlClosed;
    });
    result.longestStall = stalls.LongestStall();
    result.buffers = platform::ReceiveBuffers();
    result.unread = DatagramsStayUnread();
    const SCounters after(route);
    result.counters = StepsOf(before, after);
    result.controlClosed = controlSeen && connected() == false;
    const Clock::time_point end = Clock::now();
    (void)camera->StopContinuous();  // false if the camera has ended the session
    if (result.controlClosed) {
        result.afterwards = platform::TryConnect(camera.address(), rtspPort, connectLimit);
    }
    result.arrivals = arrivals.all();
    if (!result.arrivals.empty()) {
        const auto silence = std::max(end - result.arrivals.back().when, Clock::duration());
        result.silenceAtEnd = std::chrono::duration<double>(silence).count();
        // A frame that came after the counters were read has a higher count.
        const auto last = result.arrivals.back().datagrams;
        if (last && after.udp.received) {
            result.datagramsInSilence = std::max(*after.udp.received, *last) - *last;
        }
    }
    return result;
}

}  // namespace hostkit
