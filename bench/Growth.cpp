// Measures how CPU time and memory grow with the number of cameras in one process and with the
// size of a frame, and the time of a page with the length of a recording.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <deque>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Figures.h"
#include "PacketStream.h"
#include "Receivers.h"
#include "Recording.h"
#include "RtpReceiver.h"
#include "Sender.h"

namespace {

using namespace bench;

constexpr std::size_t camerasMost = 32;
constexpr double mebi = 1024.0 * 1024.0;

/// The figures of a process with several receivers.
struct SCameraBoard {
    std::array<SBoard, camerasMost> cameras;
    std::atomic<bool> ready{false};
};

void CountFrame(void* context, const std::uint8_t*, std::uint32_t) {
    ++static_cast<SBoard*>(context)->frames;
}

/// A process with several receivers, and a camera for each of them.
class CCameras {
   public:
    CCameras(std::size_t count, const SStreamPlan& plan)
        : board(Share<SCameraBoard>()),
          process(EPlace::SameProcessor, [&] { Receive(count, plan); }) {
        using namespace std::chrono_literals;
        for (int i = 0; !board->ready; ++i) {
            if (i > 5000) throw std::runtime_error("the receivers do not start");
            std::this_thread::sleep_for(2ms);
        }
        for (std::size_t i = 0; i < count; ++i) senders.emplace_back(board->cameras[i].port);
    }

    /// Sends a frame from each camera, one camera after the other.
    void SendRound(CPacketStream& stream) {
        for (CSender& sender : senders) {
            sender.SendDrained(stream.NextFrame());
            sender.WaitUntilDrained();
        }
        ++rounds;
    }
    /// Returns the CPU time per frame in microseconds.
    double Measure(CPacketStream& stream, unsigned frames) {
        const auto before = process.cpuTime();
        for (unsigned i = 0; i < frames; ++i) SendRound(stream);
        const std::chrono::duration<double, std::micro> spent = process.cpuTime() - before;
        return spent.count() / (frames * static_cast<double>(std::max<std::size_t>(1, count())));
    }
    [[nodiscard]] std::size_t count() const noexcept { return senders.size(); }
    [[nodiscard]] double residentMebibytes() const {
        return static_cast<double>(process.residentBytes()) / mebi;
    }
    /// Returns whether all frames of each camera have arrived.
    [[nodiscard]] bool whole() const noexcept {
        for (std::size_t i = 0; i < count(); ++i) {
            if (board->cameras[i].frames != rounds) return false;
        }
        return true;
    }

    std::vector<double> microseconds;

   private:
    void Receive(std::size_t wanted, const SStreamPlan& plan) const {
        constexpr std::uint16_t discard = 9;
        std::deque<qmx::cam::CRtpReceiver> receivers(wanted);
        for (std::size_t i = 0; i < wanted; ++i) {
            if (!receivers[i].CreateSockets() ||
                !receivers[i].SetServerAddress("127.0.0.1", discard) ||
                !receivers[i].Start(plan.streamName(), CountFrame, &board->cameras[i])) {
                return;
            }
            board->cameras[i].port = receivers[i].GetRtpPort();
        }
        board->ready = true;
        PauseForEver();
    }

    std::shared_ptr<SCameraBoard> board;
    CChild process;
    std::deque<CSender> senders;
    std::uint64_t rounds = 0;
};

Json GrowWithCameras(unsigned repetitions) {
    const SStreamPlan plan = ComparedStreams().front();
    CPacketStream stream(plan);
    PlaceSender(EPlace::SameProcessor);
    std::deque<CCameras> processes;
    for (const std::size_t count : {0U, 1U, 2U, 4U, 8U, 16U, 32U}) {
        processes.emplace_back(count, plan);
        for (int i = 0; i < 3; ++i) processes.back().SendRound(stream);
    }
    for (unsigned i = 0; i < repetitions; ++i) {
        for (CCameras& cameras : processes) {
            cameras.microseconds.push_back(cameras.Measure(stream, 4));
        }
    }
    const double baseMebibytes = processes.front().residentMebibytes();
    std::printf("Cameras of %s in one process\n  %7s %14s %16s %14s\n", plan.name.c_str(),
                "cameras", "us/frame each", "min..max", "MiB each");
    Json rows = Json::array();
    for (const CCameras& cameras : processes) {
        if (cameras.count() == 0) continue;
        const SSpread cost = SpreadOf(cameras.microseconds);
        const double mebibytes =
            (cameras.residentMebibytes() - baseMebibytes) / static_cast<double>(cameras.count());
        std::printf("  %7zu %14.1f %7.1f..%7.1f %14.2f%s\n", cameras.count(), cost.median,
                    cost.least, cost.most, mebibytes,
                    cameras.whole() ? "" : "  (frames are missing)");
        rows.push_back({{"cameras", cameras.count()},
                        {"microsecondsPerFrame", cost},
                        {"mebibytesEach", mebibytes},
                        {"whole", cameras.whole()}});
    }
    return rows;
}

Json GrowWithFrames(unsigned repetitions) {
    constexpr std::uint16_t width = 4096;  // 8 KiB per row, one row per datagram
    constexpr std::size_t linesPerMebibyte = 128;
    std::printf("Frames of %u pixels a row\n  %7s %14s %16s %14s\n", unsigned{width}, "MiB",
                "us/MiB", "min..max", "to plain loop");
    Json rows = Json::array();
    for (const std::size_t size : {2U, 4U, 8U, 16U, 32U}) {
        const auto height = static_cast<std::uint16_t>(size * linesPerMebibyte);
        const SStreamPlan plan{"", korusim::EEncoding::Raw, {width, height}, 1472, 1};
        CPacketStream stream(plan);
        const double mebibytes = 2.0 * width * height / mebi;
        PlaceSender(EPlace::SameProcessor);
        CReceiver plain(EReceiver::PlainAmongThreads, EPlace::SameProcessor, plan, stream, 0);
        CReceiver plugin(EReceiver::Plugin, EPlace::SameProcessor, plan, stream, 0);
        CSender toPlain(plain.port());
        CSender toPlugin(plugin.port());
        const auto measure = [&](CReceiver& receiver, CSender& sender) {
            const auto before = receiver.process().cpuTime();
            sender.SendDrained(stream.NextFrame());
            sender.WaitUntilDrained();
            const std::chrono::duration<double, std::micro> spent =
                receiver.process().cpuTime() - before;
            return spent.count() / mebibytes;
        };
        (void)measure(plain, toPlain);  // the first frame allocates the buffer
        (void)measure(plugin, toPlugin);
        std::vector<double> plainCosts;
        std::vector<double> pluginCosts;
        for (unsigned i = 0; i < repetitions; ++i) {
            plainCosts.push_back(measure(plain, toPlain));
            pluginCosts.push_back(measure(plugin, toPlugin));
        }
        const SSpread cost = SpreadOf(pluginCosts);
        const SSpread ratio = SpreadOf(Ratios(pluginCosts, plainCosts));
        const bool whole = plugin.board().frames == repetitions + 1U;
        std::printf("  %7.0f %14.1f %7.1f..%7.1f %14.3f%s\n", mebibytes, cost.median, cost.least,
                    cost.most, ratio.median, whole ? "" : "  (frames are missing)");
        rows.push_back({{"mebibytes", mebibytes},
                        {"microsecondsPerMebibyte", cost},
                        {"toPlainLoop", ratio},
                        {"whole", whole}});
    }
    return rows;
}

/// Records pages so small that their bytes cost little, and times each tenth of them.
Json GrowWithPages() {
    constexpr unsigned tenth = 10'000;
    const auto file = std::filesystem::temp_directory_path() /
                      ("koru-growth-" + std::to_string(::getpid()) + ".tif");
    const std::vector<std::uint8_t> pixels(std::size_t{2} * 16 * 16);
    std::vector<double> costs;
    {
        frames::CRecording recording(file);
        for (int i = 0; i < 10; ++i) {
            const auto begun = std::chrono::steady_clock::now();
            for (unsigned page = 0; page < tenth; ++page) {
                if (recording.Add({16, 16, 1, 16, pixels, std::chrono::system_clock::now(), "{}"}))
                    continue;
                throw std::runtime_error("cannot write " + file.string() + ": " +
                                         recording.error());
            }
            const std::chrono::duration<double, std::micro> spent =
                std::chrono::steady_clock::now() - begun;
            costs.push_back(spent.count() / tenth);
        }
    }
    std::filesystem::remove(file);
    std::printf("Pages of 16x16 pixels in one recording\n  %7s %14s\n", "pages", "us/page");
    Json rows = Json::array();
    for (std::size_t i = 0; i < costs.size(); ++i) {
        std::printf("  %7zu %14.1f\n", (i + 1) * tenth, costs[i]);
        rows.push_back({{"pages", (i + 1) * tenth}, {"microsecondsPerPage", costs[i]}});
    }
    std::printf("  last tenth to first: %.2f\n", costs.back() / costs.front());
    return rows;
}

}  // namespace

int main(int argc, char** argv) {
    unsigned repetitions = 15;
    std::string file;
    CLI::App app("CPU time and memory by the number of cameras and by the size of a frame");
    app.add_option("--rounds", repetitions, "repetitions of each measurement")
        ->check(CLI::PositiveNumber);
    app.add_option("--json", file, "also write the figures to this file");
    CLI11_PARSE(app, argc, argv);
    try {
        Json figures = {{"cameras", GrowWithCameras(repetitions)}};
        figures["frames"] = GrowWithFrames(repetitions);
        figures["pages"] = GrowWithPages();
        if (!file.empty()) Save(figures, file);
        return 0;
    } catch (const std::exception& failure) {
        (void)std::fprintf(stderr, "growth: %s\n", failure.what());
        return 1;
    }
}
