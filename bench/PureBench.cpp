// Measures the cost of a packet, a frame, a description and a report without sockets.
#include <benchmark/benchmark.h>

#include <string>

#include "FrameAssembler.h"
#include "JpegHeaders.h"
#include "PacketStream.h"
#include "RtcpPackets.h"
#include "RtpPacket.h"
#include "RtpSource.h"
#include "RtspStream.h"
#include "qmx.h"

namespace {

using namespace qmx::cam;

std::span<const std::uint8_t> Bytes(const iovec& packet) {
    return {static_cast<const std::uint8_t*>(packet.iov_base), packet.iov_len};
}

// The work of the receive thread on each datagram, before its payload.
void ParseAndCount(benchmark::State& state) {
    bench::CPacketStream stream(bench::ComparedStreams().front());
    const auto frame = stream.NextFrame();
    SRtpSource source;
    qmx::CSRWLock lock;
    bool firstPacket = true;
    std::uint16_t sequence = 0;
    for (auto _ : state) {
        const auto packet = ParseRtpPacket(Bytes(frame[sequence % frame.size()]));
        lock.WriteLock();
        UpdateSource(source, firstPacket, sequence++, packet->ssrc);
        lock.WriteUnlock();
    }
    benchmark::DoNotOptimize(source);
}
BENCHMARK(ParseAndCount);

void UncontendedLock(benchmark::State& state) {
    qmx::CSRWLock lock;
    for (auto _ : state) {
        lock.WriteLock();
        lock.WriteUnlock();
    }
}
BENCHMARK(UncontendedLock);

// One parsed packet, including its copy, averaged over whole frames.
void Assemble(benchmark::State& state, const bench::SStreamPlan& plan, std::uint32_t type) {
    bench::CPacketStream stream(plan);
    CFrameAssembler assembler(type);
    std::int64_t packets = 0;
    std::int64_t bytes = 0;
    std::int64_t frames = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const auto frame = stream.NextFrame();
        std::vector<SRtpPacket> parsed;
        for (const iovec& packet : frame) parsed.push_back(*ParseRtpPacket(Bytes(packet)));
        state.ResumeTiming();
        for (const SRtpPacket& packet : parsed) {
            if (const auto whole = assembler.Add(packet)) {
                ++frames;
                bytes += static_cast<std::int64_t>(whole->size());
            }
        }
        packets += static_cast<std::int64_t>(parsed.size());
    }
    if (frames != static_cast<std::int64_t>(state.iterations())) {
        state.SkipWithError("frames are missing");
    }
    state.SetItemsProcessed(packets);
    state.SetBytesProcessed(bytes);
    state.counters["perPacket"] = benchmark::Counter(
        static_cast<double>(packets), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void MakeTablesAndHeaders(benchmark::State& state) {
    QuantTable lqt{};
    QuantTable cqt{};
    std::uint8_t header[jpegHeaderLengthWithRestart];
    for (auto _ : state) {
        MakeTables(80, lqt, cqt);
        benchmark::DoNotOptimize(MakeHeaders(header, {0, 80, 60, 0}, lqt, cqt));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(MakeTablesAndHeaders);

void MakeHeadersOnly(benchmark::State& state) {
    QuantTable lqt{};
    QuantTable cqt{};
    std::uint8_t header[jpegHeaderLengthWithRestart];
    for (auto _ : state) {
        benchmark::DoNotOptimize(MakeHeaders(header, {0, 80, 60, 0}, lqt, cqt));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(MakeHeadersOnly);

void ParseADescription(benchmark::State& state) {
    korusim::SCameraSettings settings;
    settings.address = "127.0.0.11";
    settings.name = "Roof";
    settings.sizes = {{640, 512}, {320, 256}, {640, 128}, {160, 128}};
    const std::string body = korusim::DescribeFormats(settings, korusim::FormatsAt(settings, "/"));
    for (auto _ : state) {
        const SRtspStream stream = ParseDescription(body);
        if (!stream.IsValid()) state.SkipWithError("no description");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(body.size()));
}
BENCHMARK(ParseADescription);

void ComposeAReport(benchmark::State& state) {
    SRtpSource source;
    CRtcpPackets composer({1, 2, 3, 4}, "workstation-17");
    for (auto _ : state) {
        source.received += 1000;
        benchmark::DoNotOptimize(composer.Report(UpdateReportBlock(source), 0, 0).data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(ComposeAReport);

void RegisterAssemblers() {
    for (const bench::SStreamPlan& plan : bench::ComparedStreams()) {
        const std::uint32_t type =
            StreamTypeOf(plan.encoding == korusim::EEncoding::Raw    ? "ZRAW"
                         : plan.encoding == korusim::EEncoding::Mjls ? "MJLS"
                                                                     : "MJPG");
        benchmark::RegisterBenchmark(
            ("Assemble/" + plan.name).c_str(),
            [plan, type](benchmark::State& state) { Assemble(state, plan, type); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    RegisterAssemblers();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
