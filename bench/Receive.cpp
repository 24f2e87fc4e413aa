// Compares the CPU time per packet and the highest rate without loss of the plug-in's receiver with
// the plainest loop that could do its work, and with GStreamer and FFmpeg, on the same datagrams
// over loopback.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>
#include <string>
#include <thread>

#include "Figures.h"
#include "PacketStream.h"
#include "Receivers.h"
#include "Sender.h"

namespace {

using namespace bench;
using namespace std::chrono_literals;

/// Datagrams of a measurement: some milliseconds of work. It is short because the speed of a shared
/// processor drifts, and the compared receivers must run at the same speed.
constexpr double packetsPerRound = 5000;
/// FFmpeg needs some time to recognise its input.
constexpr std::uint64_t warmUpFrames = 60;
/// Bytes around a datagram on Ethernet, including the IP and UDP headers.
constexpr std::size_t wireOverhead = 66;

std::chrono::nanoseconds WireTime(std::size_t bytes) {
    constexpr std::int64_t nanosecondsPerByte = 8;  // 1 Gbit/s
    return std::chrono::nanoseconds(nanosecondsPerByte *
                                    static_cast<std::int64_t>(bytes + wireOverhead));
}

/// A receiver and the camera that sends to it.
struct SPair {
    SPair(EReceiver kind, EPlace where, const SStreamPlan& plan, std::uint64_t frames)
        : place(where),
          stream(plan, IsPeer(kind) ? ELineLength::Bytes : ELineLength::Pixels),
          receiver(kind, where, plan, stream, frames),
          sender(receiver.port()) {}

    void Send(std::uint64_t frames) {
        for (; frames != 0; --frames) {
            const auto packets = stream.NextFrame();
            if (place == EPlace::SameProcessor) {
                sender.SendDrained(packets);
            } else {
                sender.SendPaced(packets, WireTime(packets.front().iov_len));
            }
        }
        sender.WaitUntilDrained();
        std::this_thread::sleep_for(
            5ms);  // the last datagram has left the queue, but may not be processed yet
    }

    /// Returns the CPU time per arrived packet in microseconds.
    double Measure(std::uint64_t frames) {
        const auto before = receiver.process().cpuTime();
        const std::uint64_t droppedBefore = QueueOf(receiver.port()).dropped;
        Send(frames);
        const std::chrono::duration<double, std::micro> spent =
            receiver.process().cpuTime() - before;
        const std::uint64_t dropped = QueueOf(receiver.port()).dropped - droppedBefore;
        return spent.count() / (static_cast<double>(frames) * stream.packetsPerFrame() -
                                static_cast<double>(dropped));
    }

    /// Records a measurement. A receiver that has ended is left out from then on.
    void MeasureOnce(std::uint64_t frames) {
        if (ended) return;
        try {
            microseconds.push_back(Measure(frames));
        } catch (const std::runtime_error&) {
            ended = true;
        }
    }

    const EPlace place;
    CPacketStream stream;
    CReceiver receiver;
    CSender sender;
    std::vector<double> microseconds;  // per packet, by round
    bool ended = false;
};

Json Compare(const SStreamPlan& plan, EPlace place, unsigned rounds) {
    const double packets = CPacketStream(plan).packetsPerFrame();
    const auto frames = static_cast<std::uint64_t>(packetsPerRound / packets) + 1;
    // One more than is measured, because a peer ends with the last one.
    const std::uint64_t all = warmUpFrames + rounds * frames + 1;
    std::vector<std::unique_ptr<SPair>> pairs;
    for (const EReceiver kind : allReceivers) {
        if (!CanTake(kind, plan)) continue;
        PlaceSender(place);
        pairs.push_back(std::make_unique<SPair>(kind, place, plan, all));
        pairs.back()->Send(warmUpFrames);
    }
    for (unsigned round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < pairs.size(); ++i) {  // each round begins with a different one
            pairs[(round + i) % pairs.size()]->MeasureOnce(frames);
        }
    }
    Json results = Json::array();
    for (const auto& pair : pairs) {
        if (pair->microseconds.empty()) continue;
        if (!pair->ended) pair->Send(1);
        const SSpread cost = SpreadOf(pair->microseconds);
        const double ratio = cost.median / SpreadOf(pairs.front()->microseconds).median;
        const SSpread byRound = SpreadOf(Ratios(pair->microseconds, pairs.front()->microseconds));
        const std::uint64_t dropped = QueueOf(pair->receiver.port()).dropped;
        const bool whole = !pair->ended && pair->receiver.HasDeliveredAll();
        if (dropped == 0 && !whole) throw std::runtime_error("frames are missing");
        std::printf("  %-14s %8.3f %7.3f..%7.3f %10.1f %8.3f %6.3f..%6.3f %8llu\n",
                    NameOf(pair->receiver.kind()), cost.median, cost.least, cost.most,
                    cost.median * packets, ratio, byRound.least, byRound.most,
                    static_cast<unsigned long long>(dropped));
        results.push_back({{"receiver", NameOf(pair->receiver.kind())},
                           {"microsecondsPerPacket", cost},
                           {"microsecondsPerFrame", cost.median * packets},
                           {"toPlainLoop", ratio},
                           {"toPlainLoopByRound", byRound},
                           {"dropped", dropped}});
    }
    return {{"stream", plan.name},
            {"place", place == EPlace::SameProcessor ? "same processor" : "other processor"},
            {"packetsPerFrame", packets},
            {"receivers", results}};
}

Json CompareAll(const std::vector<SStreamPlan>& plans, unsigned rounds) {
    Json all = Json::array();
    for (const EPlace place : {EPlace::SameProcessor, EPlace::OtherProcessor}) {
        std::printf("\nCPU time, %s\n  %-14s %8s %16s %10s %8s %14s %8s\n",
                    place == EPlace::SameProcessor ? "datagrams waiting when the receiver reads"
                                                   : "datagrams arriving at 1 Gbit/s",
                    "", "us/packet", "min..max", "us/frame", "to plain", "min..max", "dropped");
        for (const SStreamPlan& plan : plans) {
            std::printf("%s\n", plan.name.c_str());
            all.push_back(
                Compare(plan, place, place == EPlace::SameProcessor ? rounds : (rounds + 2) / 3));
            (void)std::fflush(stdout);
        }
    }
    return all;
}

/// Sends at a rate, in packets per second, for a time, and returns whether the receiver receives
/// everything.
struct STrial {
    double sent = 0;  ///< packets per second that the sender reached
    bool whole = false;
};

STrial TryRate(EReceiver kind, const SStreamPlan& plan, double packetsPerSecond) {
    constexpr double seconds = 0.3;
    const double perFrame = CPacketStream(plan).packetsPerFrame();
    const auto frames = static_cast<std::uint64_t>(packetsPerSecond * seconds / perFrame) + 1;
    PlaceSender(EPlace::OtherProcessor);
    const std::uint64_t warmUp = IsPeer(kind) ? warmUpFrames : 1;
    SPair pair(kind, EPlace::OtherProcessor, plan, warmUp + frames + 1);
    pair.Send(warmUp);
    const std::chrono::nanoseconds interval(static_cast<std::int64_t>(1e9 / packetsPerSecond));
    const std::int64_t begun = Now();
    for (std::uint64_t i = 0; i < frames; ++i) {
        pair.sender.SendPaced(pair.stream.NextFrame(), interval);
    }
    const double took = static_cast<double>(Now() - begun) / 1e9;
    pair.sender.WaitUntilDrained();
    pair.Send(1);
    return {static_cast<double>(frames) * perFrame / took, pair.receiver.HasDeliveredAll()};
}

/// Returns the first of three trials that loses nothing; nothing if all lose packets. On a busy
/// machine a receiver may wait for its processor for longer than its buffer lasts.
std::optional<STrial> TryThrice(EReceiver kind, const SStreamPlan& plan, double rate) {
    for (int chance = 0; chance < 3; ++chance) {
        try {
            const STrial trial = TryRate(kind, plan, rate);
            if (trial.whole) return trial;
        } catch (const std::runtime_error&) {
            continue;  // the receiver has ended or does not receive
        }
    }
    return std::nullopt;
}

/// The highest rate without loss that was found.
struct SHighestRate {
    double packetsPerSecond = 0;
    bool senderBound = false;  ///< the sender could not go faster
};

/// Searches the highest rate without loss: in steps up to a rate that loses packets, then by
/// bisection. Ends at a rate that the sender does not reach.
SHighestRate FindRate(EReceiver kind, const SStreamPlan& plan) {
    constexpr double firstRate = 50000;
    constexpr double step = 1.6;
    constexpr int halvings = 3;
    constexpr double reachedShare = 0.95;
    SHighestRate best;
    double lost = 0;  // lowest rate that lost packets
    int halved = 0;
    for (double good = 0, rate = firstRate; halved <= halvings;) {
        if (const auto trial = TryThrice(kind, plan, rate)) {
            best.packetsPerSecond = std::max(best.packetsPerSecond, trial->sent);
            best.senderBound = trial->sent < reachedShare * rate;
            if (best.senderBound) break;
            good = rate;
        } else {
            lost = rate;
        }
        if (lost > 0) ++halved;
        rate = lost > 0 ? (good + lost) / 2 : rate * step;
    }
    return best;
}

Json FindRates(const std::vector<SStreamPlan>& plans) {
    constexpr unsigned rateRounds = 3;
    std::printf("\nHighest rate without loss, on two processors\n");
    Json all = Json::array();
    for (const SStreamPlan& plan : plans) {
        std::printf("%s\n", plan.name.c_str());
        std::map<EReceiver, std::vector<double>> rates;
        std::map<EReceiver, unsigned> senderBound;  // number of rounds
        for (unsigned round = 0; round < rateRounds; ++round) {
            for (const EReceiver kind : allReceivers) {
                if (!CanTake(kind, plan)) continue;
                const SHighestRate found = FindRate(kind, plan);
                rates[kind].push_back(found.packetsPerSecond);
                senderBound[kind] += found.senderBound ? 1 : 0;
            }
        }
        Json results = Json::array();
        for (const auto& [kind, found] : rates) {
            const SSpread rate = SpreadOf(found);
            const double frames = rate.median / CPacketStream(plan).packetsPerFrame();
            std::printf(
                "  %-14s %8.0f packets/s %8.0f..%8.0f %8.0f frames/s, sender bound %u of %u\n",
                NameOf(kind), rate.median, rate.least, rate.most, frames, senderBound[kind],
                rateRounds);
            results.push_back({{"receiver", NameOf(kind)},
                               {"packetsPerSecond", rate},
                               {"framesPerSecond", frames},
                               {"senderBoundRounds", senderBound[kind]},
                               {"rounds", rateRounds}});
        }
        all.push_back({{"stream", plan.name}, {"receivers", results}});
        (void)std::fflush(stdout);
    }
    return all;
}

}  // namespace

int main(int argc, char** argv) {
    unsigned rounds = 41;
    std::string only;
    std::string file;
    CLI::App app("CPU time per packet, and the highest rate without loss, of receivers");
    app.add_option("--rounds", rounds, "repetitions of each measurement")
        ->check(CLI::PositiveNumber);
    app.add_option("--stream", only, "only streams with this text in their names");
    app.add_option("--json", file, "also write the figures to this file");
    CLI11_PARSE(app, argc, argv);
    try {
        std::vector<SStreamPlan> plans = ComparedStreams();
        std::erase_if(plans, [&](const SStreamPlan& plan) {
            return plan.name.find(only) == std::string::npos;
        });
        const Json figures = {{"cpu", CompareAll(plans, rounds)}, {"rate", FindRates(plans)}};
        if (!file.empty()) Save(figures, file);
        return 0;
    } catch (const std::exception& failure) {
        (void)std::fprintf(stderr, "receive: %s\n", failure.what());
        return 1;
    }
}
