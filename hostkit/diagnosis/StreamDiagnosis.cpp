#include "StreamDiagnosis.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "LossAdvice.h"
#include "NetworkHints.h"

namespace hostkit {
namespace {

using frames::Clock;

/// A rate below this share of the promised one is a fault.
constexpr double sufficientRate = 0.9;
/// Share of missing frames from which on the step fails.
constexpr double seriousLoss = 0.01;
/// Fewer frames do not show the frame time.
constexpr std::size_t fewestFrames = 5;
/// Intervals longer than this, in frame times, have a frame missing.
constexpr double gapFrom = 1.5;
/// If less than this share of the datagrams of the missing frames has arrived, none was sent.
constexpr double someArrived = 0.1;

double Seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

/// With a promised rate, few frames of fewer than this share of the promised ones are a loss, not a
/// short measurement.
constexpr double clearlyTooFew = 0.5;

/// The regularity of a stream, and the datagrams that arrived for frames that were not delivered.
struct SFlow {
    double frameTime = 0;  ///< seconds while no frame is missing; 0 if unknown
    double longestGap = 0;
    std::uint64_t missing = 0;
    double datagramsPerFrame = 0;  ///< 0 if unknown
    bool equalFrames = false;      ///< all frames have that many datagrams
    // Missing frames by the datagrams of their gap, beyond those of the frame that ended it.
    double withoutDatagrams = 0;
    double withSome = 0;
    double withAll = 0;
};

struct SInterval {
    double seconds = 0;
    std::optional<double> datagrams;
};

std::vector<SInterval> Intervals(const SStreamMeasurement& stream) {
    std::vector<SInterval> intervals;
    for (std::size_t i = 1; i < stream.arrivals.size(); ++i) {
        const SArrival& earlier = stream.arrivals[i - 1];
        const SArrival& later = stream.arrivals[i];
        SInterval interval{Seconds(later.when - earlier.when), {}};
        if (earlier.datagrams && later.datagrams) {
            interval.datagrams = static_cast<double>(*later.datagrams - *earlier.datagrams);
        }
        intervals.push_back(interval);
    }
    return intervals;
}

/// Classifies the missing frames if no frame followed another one directly, so that the datagrams
/// of a frame are known only from its length. Returns true if more datagrams arrived than the
/// delivered frames have.
bool CountSparseDatagrams(const SStreamMeasurement& stream, double otherDatagrams, SFlow& flow) {
    if (!stream.counters.datagrams) return false;
    constexpr double datagram = 1500;
    std::uint32_t length = 0;
    for (const SArrival& each : stream.arrivals) length = std::max(length, each.length);
    const auto missing = static_cast<double>(flow.missing);
    flow.datagramsPerFrame = std::max(std::ceil(length / datagram), 1.0);
    flow.equalFrames = false;
    const double arrived = static_cast<double>(*stream.counters.datagrams) -
                           otherDatagrams * stream.seconds -
                           flow.datagramsPerFrame * static_cast<double>(stream.arrivals.size());
    const bool some = arrived >= someArrived * flow.datagramsPerFrame * missing;
    (some ? flow.withSome : flow.withoutDatagrams) = missing;
    return some;
}

void CountDatagrams(const SStreamMeasurement& stream, const std::vector<SInterval>& intervals,
                    double otherDatagrams, SFlow& flow) {
    std::vector<double> whole;  // of frames that followed the previous one directly
    for (const SInterval& each : intervals) {
        if (!each.datagrams) return;
        if (each.seconds < gapFrom * flow.frameTime) whole.push_back(*each.datagrams);
    }
    if (whole.empty()) {
        (void)CountSparseDatagrams(stream, otherDatagrams, flow);
        return;
    }
    std::ranges::sort(whole);
    flow.datagramsPerFrame = whole[whole.size() / 2];
    flow.equalFrames = static_cast<double>(std::ranges::count(whole, flow.datagramsPerFrame)) >=
                       0.8 * static_cast<double>(whole.size());
    constexpr double memory = 0.9;  // an error of the frame time must not add up
    double lateness = 0;            // of the last frame, in frame times
    for (const SInterval& each : intervals) {
        const double time = lateness + each.seconds / flow.frameTime;
        const double missing = std::round(time) - 1;
        lateness = memory * (time - (missing + 1));
        const double sent = flow.datagramsPerFrame * missing;
        const double arrived = *each.datagrams - flow.datagramsPerFrame;
        if (missing <= 0) {
            // A frame that was merely late has been counted as one that was not sent.
            flow.withoutDatagrams = std::max(flow.withoutDatagrams + missing, 0.0);
            continue;
        }
        // A frame that is missing by loss has lost at least one datagram.
        double& kind = arrived < someArrived * sent    ? flow.withoutDatagrams
                       : arrived <= sent - missing / 2 ? flow.withSome
                                                       : flow.withAll;
        kind += missing;
    }
}

/// Datagrams to expect at least in this time, if none was lost.
double ExpectedDatagrams(const SStreamMeasurement& stream, double seconds) {
    constexpr double datagram = 1500;
    constexpr double compression = 16;
    constexpr double slowRate = 5;
    const double bytes = static_cast<double>(stream.rawBytes) / (stream.raw ? 1 : compression);
    return std::max(bytes / datagram, 1.0) * stream.promisedRate.value_or(slowRate) * seconds;
}

/// Returns true if a counter advanced in this time by more than the other traffic, which varies.
bool Advanced(const std::optional<std::uint64_t>& count, double otherPerSecond,
              const SStreamMeasurement& stream, double seconds) {
    const double few = ExpectedDatagrams(stream, seconds) / 5;
    return static_cast<double>(count.value_or(0)) > 2 * otherPerSecond * seconds + few;
}

/// Returns true if datagrams of the camera arrived during the silence at the end.
bool ReceptionGoesOn(const SStreamMeasurement& stream, double otherDatagrams) {
    return Advanced(stream.datagramsInSilence, otherDatagrams, stream, stream.silenceAtEnd);
}

/// Counts the missing frames of a stream of which so few arrived that their intervals show nothing.
/// A camera that is merely slow, however, shows a frame time.
void CountByPromise(const SStreamMeasurement& stream, double otherDatagrams, SFlow& flow) {
    const auto arrived = static_cast<double>(stream.arrivals.size());
    const double expected = stream.promisedRate.value_or(0) * stream.seconds;
    if (stream.arrivals.size() >= fewestFrames || arrived >= clearlyTooFew * expected) return;
    SFlow promised = flow;
    promised.frameTime = 1 / *stream.promisedRate;
    promised.missing = static_cast<std::uint64_t>(std::round(expected - arrived));
    const bool sent = CountSparseDatagrams(stream, otherDatagrams, promised);
    if (sent || stream.arrivals.size() == 1) flow = promised;
}

SFlow Analyse(const SStreamMeasurement& stream, double otherDatagrams) {
    const std::vector<SInterval> intervals = Intervals(stream);
    SFlow flow;
    frames::CMissingFrames estimate;
    for (std::size_t i = 1; i < stream.arrivals.size(); ++i) {
        estimate.Add(stream.arrivals[i].when - stream.arrivals[i - 1].when);
    }
    double sum = 0;
    for (const SInterval& each : intervals) {
        sum += each.seconds;
        flow.longestGap = std::max(flow.longestGap, each.seconds);
    }
    flow.frameTime = Seconds(estimate.FrameTime());
    if (flow.frameTime == 0 && !intervals.empty()) {
        flow.frameTime = sum / static_cast<double>(intervals.size());
    }
    flow.missing = estimate.count();
    // Where most frames are missing, or come in one burst, their intervals do not show the frame
    // time.
    const double promised = 1 / stream.promisedRate.value_or(1e9);
    const bool regular = estimate.IsRegular(
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(flow.frameTime)));
    const bool sparse = flow.frameTime > gapFrom * promised;
    const bool dense = flow.frameTime < promised / gapFrom;
    if (stream.promisedRate && (sparse || dense) && !regular) {
        flow.frameTime = promised;
        const double expected =
            (sum + (ReceptionGoesOn(stream, otherDatagrams) ? stream.silenceAtEnd : 0)) / promised;
        flow.missing = static_cast<std::uint64_t>(
            std::max(std::round(expected) - static_cast<double>(intervals.size()), 0.0));
    }
    CountDatagrams(stream, intervals, otherDatagrams, flow);
    CountByPromise(stream, otherDatagrams, flow);
    return flow;
}

/// Where missing frames were lost, as far as the counters show it.
enum class EPlace {
    ReceiveBuffer,
    Interface,
    Network,     ///< some of their datagrams arrived, and some did not
    Disordered,  ///< all their datagrams arrived, but not in order, or more than once
    Incomplete,  ///< one of the two above
    NotSent,     ///< none of their datagrams arrived
    Unknown,
};

EPlace PlaceOf(const SStreamMeasurement& stream, const SFlow& flow) {
    const double missing = static_cast<double>(flow.missing);
    if (LostHere({flow.missing, stream.counters.dropped, {}, 0})) return EPlace::ReceiveBuffer;
    if (static_cast<double>(stream.counters.interfaceDropped.value_or(0)) >= missing / 2) {
        return EPlace::Interface;
    }
    // A frame of a single datagram leaves no trace.
    if (flow.datagramsPerFrame < 2) return EPlace::Unknown;
    // A busy camera may skip a frame besides, so that the majority decides.
    if (flow.withoutDatagrams > flow.withSome + flow.withAll) return EPlace::NotSent;
    // Much traffic of other programs would make the frames unequal.
    if (!stream.raw || !flow.equalFrames) return EPlace::Incomplete;
    return flow.withAll > flow.withSome ? EPlace::Disordered : EPlace::Network;
}

SFinding Step(const SStreamMeasurement& stream, const char* name) {
    return {stream.format + ", " + name, EVerdict::Ok, {}, {}, {}};
}

std::string Count(std::uint64_t number, const char* what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string CheckFirewalls() {
    return "check firewalls: RTP comes by UDP to a port that the system picks; first " +
           platform::FirewallHint();
}

/// If the counters do not show whether packets were lost, repeated or reordered.
constexpr const char* captureAdvice =
    "capture the stream with Wireshark, and see whether its RTP sequence numbers skip, repeat or "
    "change their order";

/// Explains a stream whose control connection the camera has closed.
void ExplainClosedControl(const SStreamMeasurement& stream, SFinding& finding) {
    finding.text += ", then the camera closed its control connection";
    if (stream.afterwards == platform::EConnect::Connected) {
        finding.advice = "start the stream again";
        finding.cause = "The camera has restarted, or has ended the session.";
        return;
    }
    finding.text += " and " + ConnectObstacle(stream.afterwards, rtspPort);
    finding.advice = "check the power of the camera, and start the stream again";
    finding.cause = "The camera was lost during the stream: it was switched off, or restarts.";
}

/// Explains a stream that started but delivered no frame.
void ExplainSilence(const SStreamMeasurement& stream, const SCameraMeasurement& camera,
                    SFinding& finding) {
    const SCounterSteps& counters = stream.counters;
    const auto arrived = [&](const std::optional<std::uint64_t>& count, double otherPerSecond) {
        return Advanced(count, otherPerSecond, stream, stream.seconds);
    };
    const SBackground& other = camera.background;
    finding.text = "no frame in " + Decimal(stream.seconds, 1) + " s";
    if (stream.controlClosed) {
        ExplainClosedControl(stream, finding);
    } else if (counters.dropped.value_or(0) != 0) {
        finding.text += ", " + Count(*counters.dropped, "datagram") + " dropped by this system";
        finding.advice = ReceiveBufferAdvice(stream.buffers, stream.longestStall);
        finding.cause = "This system drops the datagrams, because the receive buffer (" +
                        ReceiveBufferText(stream.buffers) + ") is full.";
    } else if (!counters.datagrams) {
        finding.advice = CheckFirewalls();
        finding.cause = "The camera accepts the stream, but no frame arrives.";
    } else if (arrived(counters.datagrams, other.datagrams)) {
        finding.text += ", although " + Count(*counters.datagrams, "datagram") + " arrived";
        finding.advice = captureAdvice;
        finding.cause =
            "So many packets are lost, repeated or out of order that no frame is complete.";
    } else if (arrived(counters.interfacePackets, other.interfacePackets)) {
        finding.text +=
            ", although the interface received " + Count(*counters.interfacePackets, "packet");
        finding.advice = platform::FirewallHint();
        finding.cause = "A firewall on this machine blocks the UDP packets of the camera.";
    } else if (!counters.interfacePackets || other.interfacePackets * stream.seconds >
                                                 ExpectedDatagrams(stream, stream.seconds)) {
        finding.text += ", and no UDP from the camera reached this program";
        finding.advice = CheckFirewalls();
        finding.cause =
            "The camera accepts the stream, but no UDP from it reaches this program: a firewall "
            "blocks it, or the camera does not send.";
    } else {
        finding.text += ", and no UDP from the camera reached this machine";
        finding.advice =
            "check firewalls and routers between the camera and this machine: RTP "
            "comes by UDP to a port that the system picks";
        finding.cause =
            "The camera accepts the stream, but no UDP from it reaches this machine: a firewall "
            "or router on the way blocks it, or the camera does not send.";
    }
}

SFinding StreamStep(const SStreamMeasurement& stream, const SCameraMeasurement& camera,
                    const SFlow& flow) {
    SFinding finding = Step(stream, "stream");
    finding.verdict = EVerdict::Failed;
    if (stream.refusal) {
        finding.text = "the camera did not start: " + stream.refusal->reason;
        finding.advice = stream.refusal->advice;
        finding.cause = "The camera does not stream: " + stream.refusal->reason + ".";
        return finding;
    }
    if (stream.arrivals.empty()) {
        ExplainSilence(stream, camera, finding);
        return finding;
    }
    finding.text =
        Count(stream.arrivals.size(), "frame") + " in " + Decimal(stream.seconds, 1) + " s";
    const double longSilence = std::max(0.5, 4 * flow.frameTime);
    const bool silent = stream.arrivals.size() > 1 && stream.silenceAtEnd > longSilence;
    // Without the counter, only the silence is known.
    const bool ended =
        silent && (stream.unread || !ReceptionGoesOn(stream, camera.background.datagrams));
    if (stream.controlClosed) {
        ExplainClosedControl(stream, finding);
    } else if (ended && stream.unread) {
        finding.text += ", then reception ended, while datagrams still arrive";
        finding.advice = "start the stream again";
        finding.cause = "An empty datagram has ended reception in this program.";
    } else if (ended) {
        finding.text += ", and none in the last " + Decimal(stream.silenceAtEnd, 1) + " s";
        finding.advice = "check the cable and the power of the camera";
        finding.cause = "The camera has stopped sending, or has been disconnected.";
    } else {
        finding.verdict = EVerdict::Ok;
    }
    return finding;
}

SFinding RateStep(const SStreamMeasurement& stream, const SFlow& flow) {
    SFinding finding = Step(stream, "frame rate");
    const double rate = 1 / flow.frameTime;
    finding.text = Decimal(rate, 1) + " frames/s";
    if (!stream.promisedRate) {
        finding.text += "; the camera promises none";
        return finding;
    }
    const std::string promised = Decimal(*stream.promisedRate, 1) + " frames/s";
    finding.text += " of the promised " + promised;
    if (rate >= sufficientRate * *stream.promisedRate) return finding;
    finding.verdict = EVerdict::Failed;
    finding.advice =
        "check the camera's settings, such as a long exposure, or request a rate that "
        "it reaches";
    finding.cause = "The camera sends regularly, but only " + Decimal(rate, 1) +
                    " frames/s instead of the " + promised + " that its node tree promises.";
    return finding;
}

void ExplainMissing(EPlace place, const SStreamMeasurement& stream, SFinding& finding) {
    switch (place) {
        case EPlace::ReceiveBuffer:
            finding.text += "; this system dropped " + Count(*stream.counters.dropped, "datagram") +
                            " because the receive buffer was full";
            finding.advice = ReceiveBufferAdvice(stream.buffers, stream.longestStall);
            finding.cause =
                "Packets are lost in the receive buffer of this machine: " + finding.advice + ".";
            return;
        case EPlace::Interface:
            finding.text += "; the network interface dropped " +
                            Count(*stream.counters.interfaceDropped, "packet");
            finding.advice =
                "enlarge the interface's receive ring (ethtool -G), and check its "
                "driver";
            finding.cause = "The network interface of this machine drops packets.";
            return;
        case EPlace::Network:
            finding.text += "; some of their packets did not arrive, and this system dropped none";
            finding.advice = "check cables, switches and flow control";
            finding.cause = "Packets are lost before they reach this machine.";
            return;
        case EPlace::Disordered:
            finding.text += "; all of their packets arrived, but out of order or repeatedly";
            finding.advice = "look for parallel paths between the camera and this machine";
            finding.cause = "The network reorders or repeats packets, which costs their frames.";
            return;
        case EPlace::Incomplete:
            finding.text += "; some of their packets arrived, and this system dropped none";
            finding.advice = captureAdvice;
            finding.cause =
                "Packets are lost, repeated or reordered before they reach this machine.";
            return;
        case EPlace::NotSent:
            finding.text += "; none of their packets arrived";
            finding.advice = "check the camera's load and settings; a lower frame rate may help";
            finding.cause = "The camera skips frames.";
            return;
        case EPlace::Unknown:
            break;
    }
    finding.text += stream.counters.dropped == std::optional<std::uint64_t>(0)
                        ? "; this system dropped no datagram"
                        : "; whether this system dropped datagrams is unknown";
    finding.advice = "check cables, switches and the camera's load";
    finding.cause = "Frames are lost before they reach this machine, or the camera skips them.";
}

SFinding MissingStep(const SStreamMeasurement& stream, const SFlow& flow) {
    SFinding finding = Step(stream, "missing frames");
    if (stream.arrivals.size() < fewestFrames && flow.missing == 0) {
        finding.verdict = EVerdict::Warning;
        finding.text = "unknown, because only " + Count(stream.arrivals.size(), "frame") +
                       (stream.arrivals.size() == 1 ? " has" : " have") + " arrived";
        finding.advice = "measure longer, with --seconds";
        finding.cause = "Too few frames have arrived to judge the stream; measure longer.";
        return finding;
    }
    const double all = static_cast<double>(stream.arrivals.size() + flow.missing);
    const double share = static_cast<double>(flow.missing) / all;
    finding.text = flow.missing == 0 ? "none"
                                     : "about " + std::to_string(flow.missing) + " (" +
                                           Decimal(100 * share, 1) + " %)";
    if (flow.missing == 0) return finding;
    finding.verdict = share >= seriousLoss ? EVerdict::Failed : EVerdict::Warning;
    ExplainMissing(PlaceOf(stream, flow), stream, finding);
    return finding;
}

SFinding BufferStep(const SStreamMeasurement& stream) {
    SFinding finding = Step(stream, "receive buffer");
    std::uint64_t largest = 0;
    for (const SArrival& each : stream.arrivals) {
        largest = std::max<std::uint64_t>(largest, each.length);
    }
    finding.text = ReceiveBufferText(stream.buffers) + ", frames of up to " +
                   std::to_string((largest + 1023) / 1024) + " KiB";
    if (!stream.buffers.granted || *stream.buffers.granted >= largest) return finding;
    finding.verdict = EVerdict::Warning;
    finding.advice = ReceiveBufferAdvice(stream.buffers, 0);
    finding.cause =
        "A frame is larger than the receive buffer of this machine, so that a short "
        "delay of the program costs frames.";
    return finding;
}

SFinding TimingStep(const SStreamMeasurement& stream, const SFlow& flow) {
    constexpr double harmless = 0.1;
    SFinding finding = Step(stream, "timing");
    finding.text = "a frame every " + Decimal(1000 * flow.frameTime, 1) + " ms, longest gap " +
                   Decimal(1000 * flow.longestGap, 1) + " ms";
    const bool late = flow.longestGap > std::max(2.5 * flow.frameTime, flow.frameTime + harmless);
    if (!late || flow.missing != 0) return finding;
    finding.verdict = EVerdict::Warning;
    finding.advice = "close programs that keep this machine busy, and avoid wireless links";
    finding.cause = "All frames arrive, but some of them late.";
    return finding;
}

}  // namespace

std::vector<SFinding> DiagnoseStream(const SStreamMeasurement& stream,
                                     const SCameraMeasurement& camera) {
    const SFlow flow = Analyse(stream, camera.background.datagrams);
    std::vector<SFinding> findings = {StreamStep(stream, camera, flow)};
    if (stream.arrivals.empty()) return findings;
    if (stream.arrivals.size() > 1) findings.push_back(RateStep(stream, flow));
    findings.push_back(MissingStep(stream, flow));
    findings.push_back(BufferStep(stream));
    if (stream.arrivals.size() > 1) findings.push_back(TimingStep(stream, flow));
    return findings;
}

}  // namespace hostkit
