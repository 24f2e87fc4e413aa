// CPU time per packet and highest rate without loss of the plug-in's receiver, beside the plainest
// loop that could do its work and beside GStreamer and FFmpeg, on the same datagrams over loopback.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <thread>

#include "Figures.h"
#include "PacketStream.h"
#include "Receivers.h"
#include "Sender.h"

namespace {

using namespace bench;
using namespace std::chrono_literals;

/// So many datagrams a measurement: some 10 ms of work for the fastest receiver.
constexpr double packetsPerRound = 10000;
/// FFmpeg takes its time to find out what it is given.
constexpr std::uint64_t warmUpFrames = 60;
/// What precedes and follows a datagram on Ethernet, with IP and UDP headers.
constexpr std::size_t wireOverhead = 66;

std::chrono::nanoseconds WireTime(std::size_t bytes) {
    constexpr std::int64_t nanosecondsPerByte = 8;  // 1 Gbit/s
    return std::chrono::nanoseconds(nanosecondsPerByte *
                                    static_cast<std::int64_t>(bytes + wireOverhead));
}

/// One receiver and the camera that sends to it.
struct SPair {
    SPair(EReceiver kind, EPlace where, const SStreamPlan& plan, std::uint64_t frames)
        : place(where),
          stream(plan, IsPeer(kind) ? ELineLength::Bytes : ELineLength::Pixels),
          receiver(kind, where, plan, stream, frames),
          sender(receiver.port()) {}

    void Send(std::uint64_t frames) {
        for (; frames != 0; --frames) {
            const auto packets = stream.NextFrame();
            if (place == EPlace::Behind) {
                sender.SendDrained(packets);
            } else {
                sender.SendPaced(packets, WireTime(packets.front().iov_len));
            }
        }
        sender.WaitUntilDrained();
        std::this_thread::sleep_for(5ms);  // the last datagram is out of the queue, not yet done
    }

    /// Microseconds a packet.
    double Measure(std::uint64_t frames) {
        const auto before = receiver.process().cpuTime();
        Send(frames);
        const std::chrono::duration<double, std::micro> spent =
            receiver.process().cpuTime() - before;
        return spent.count() / (static_cast<double>(frames) * stream.packetsPerFrame());
    }

    const EPlace place;
    CPacketStream stream;
    CReceiver receiver;
    CSender sender;
    std::vector<double> microseconds;
};

Json Compare(const SStreamPlan& plan, EPlace place, unsigned rounds) {
    const double packets = CPacketStream(plan).packetsPerFrame();
    const auto frames = static_cast<std::uint64_t>(packetsPerRound / packets) + 1;
    // One more than is measured: a peer ends with the last one.
    const std::uint64_t all = warmUpFrames + rounds * frames + 1;
    std::vector<std::unique_ptr<SPair>> pairs;
    for (const EReceiver kind : allReceivers) {
        if (!CanTake(kind, plan)) continue;
        PlaceSender(place);
        pairs.push_back(std::make_unique<SPair>(kind, place, plan, all));
        pairs.back()->Send(warmUpFrames);
    }
    for (unsigned round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < pairs.size(); ++i) {  // each round begins with another one
            SPair& pair = *pairs[(round + i) % pairs.size()];
            pair.microseconds.push_back(pair.Measure(frames));
        }
    }
    Json results = Json::array();
    for (const auto& pair : pairs) {
        pair->Send(1);
        const SSpread cost = SpreadOf(pair->microseconds);
        const SSpread ratio = SpreadOf(Ratios(pair->microseconds, pairs.front()->microseconds));
        const bool whole = pair->receiver.HasDeliveredAll();
        std::printf("  %-14s %8.3f %7.3f..%7.3f %10.1f %8.3f %6.3f..%6.3f%s\n",
                    NameOf(pair->receiver.kind()), cost.median, cost.least, cost.most,
                    cost.median * packets, ratio.median, ratio.least, ratio.most,
                    whole ? "" : "  (frames are missing)");
        results.push_back({{"receiver", NameOf(pair->receiver.kind())},
                           {"microsecondsPerPacket", cost},
                           {"microsecondsPerFrame", cost.median * packets},
                           {"toPlainLoop", ratio},
                           {"whole", whole}});
    }
    return {{"stream", plan.name},
            {"place", place == EPlace::Behind ? "behind" : "beside"},
            {"packetsPerFrame", packets},
            {"receivers", results}};
}

Json CompareAll(unsigned rounds) {
    Json all = Json::array();
    for (const EPlace place : {EPlace::Behind, EPlace::Beside}) {
        std::printf("\nCPU time, %s\n  %-14s %8s %16s %10s %8s %14s\n",
                    place == EPlace::Behind ? "datagrams waiting when the receiver looks"
                                            : "datagrams coming in at 1 Gbit/s",
                    "", "us/packet", "min..max", "us/frame", "to plain", "min..max");
        for (const SStreamPlan& plan : ComparedStreams()) {
            std::printf("%s\n", plan.name.c_str());
            all.push_back(Compare(plan, place, rounds));
            (void)std::fflush(stdout);
        }
    }
    return all;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const unsigned rounds = argc > 1 ? static_cast<unsigned>(std::stoul(argv[1])) : 15;
        const Json figures = {{"compare", CompareAll(rounds)}};
        if (argc > 2) Save(figures, argv[2]);
        return 0;
    } catch (const std::exception& failure) {
        (void)std::fprintf(stderr, "receive: %s\n", failure.what());
        return 1;
    }
}
