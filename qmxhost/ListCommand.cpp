#include <chrono>
#include <cstdio>
#include <map>
#include <thread>

#include "Commands.h"
#include "Process.h"

namespace qmxhost {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Least time between two searches of `--follow`. Without a network a search ends at once.
constexpr auto followPeriod = 2s;
constexpr auto stopPoll = 50ms;
/// Searches in a row that miss a camera before it counts as gone. A single multicast response may
/// be lost.
constexpr int roundsUntilGone = 2;

constexpr const char* noCameraFound =
    "no camera found; is a camera on this network segment, and does multicast (UDP port 5353) get "
    "through? Only cameras whose node tree (TCP port 4554) allows RTP are listed: --verbose shows "
    "the probes";

struct SCamera {
    std::string address;
    std::string name;

    auto operator<=>(const SCamera&) const = default;
};

std::vector<SCamera> Search(CPluginHost& host) {
    std::vector<SCamera> cameras;
    for (const auto& info : host.Enumerate()) {
        cameras.push_back({ParameterText(info, "IP"), ParameterText(info, "Name")});
    }
    return cameras;
}

void PrintCamera(const SCamera& camera, const char* prefix) {
    char address[32];
    std::snprintf(address, sizeof(address), "%-15s  ", camera.address.c_str());
    Print(prefix + (address + Printable(camera.name)) + "\n");
}

Json AsJson(const SCamera& camera) { return {{"address", camera.address}, {"name", camera.name}}; }

EExit ListOnce(CPluginHost& host, bool json) {
    const std::vector<SCamera> cameras = Search(host);
    if (json) {
        Json list = Json::array();
        for (const SCamera& camera : cameras) list.push_back(AsJson(camera));
        PrintJson({{"cameras", list}});
    } else {
        for (const SCamera& camera : cameras) PrintCamera(camera, "");
    }
    if (cameras.empty()) throw CFailure(EExit::NoCamera, noCameraFound);
    if (!json) PrintHint("try: qmxhost formats " + cameras.front().address);
    return EExit::Done;
}

void PrintChange(const SCamera& camera, const char* change, bool json) {
    if (!json) {
        PrintCamera(camera, (std::string(change) + "  ").c_str());
        return;
    }
    Json event{{"event", change}};
    event.update(AsJson(camera));
    PrintJson(event);
}

/// The cameras that `--follow` remembers between two searches.
class CKnownCameras {
   public:
    explicit CKnownCameras(bool jsonOutput) : json(jsonOutput) {}

    /// Records the result of a search and prints what has changed.
    void Update(const std::vector<SCamera>& seen) {
        for (auto& [camera, missed] : roundsMissed) ++missed;
        for (const SCamera& camera : seen) {
            if (!roundsMissed.contains(camera)) PrintChange(camera, "new", json);
            roundsMissed[camera] = 0;
        }
        std::erase_if(roundsMissed, [this](const auto& entry) {
            if (entry.second < roundsUntilGone) return false;
            PrintChange(entry.first, "gone", json);
            return true;
        });
    }

   private:
    const bool json;
    std::map<SCamera, int> roundsMissed;
};

void SleepUntil(Clock::time_point end) {
    while (!platform::StopRequested() && Clock::now() < end) std::this_thread::sleep_for(stopPoll);
}

EExit Follow(CPluginHost& host, bool json) {
    platform::WatchStopSignals();
    CKnownCameras known(json);
    for (bool first = true; !platform::StopRequested(); first = false) {
        const Clock::time_point next = Clock::now() + followPeriod;
        const std::vector<SCamera> seen = Search(host);
        known.Update(seen);
        if (first && seen.empty()) PrintError(noCameraFound);
        SleepUntil(next);
    }
    return EExit::Done;
}

}  // namespace

EExit RunList(CPluginHost& host, bool follow, bool json) {
    return follow ? Follow(host, json) : ListOnce(host, json);
}

}  // namespace qmxhost
