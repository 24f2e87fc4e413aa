// The camera simulator: virtual cameras from the command line, until a signal ends it.
#include <signal.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <list>
#include <set>
#include <string>
#include <vector>

#include "Announcer.h"
#include "CameraSettings.h"
#include "VirtualCamera.h"

namespace {

using korusim::CVirtualCamera;
using korusim::SCameraSettings;

enum EExit { Good = 0, Failed = 1, WrongUsage = 2 };

int Complain(EExit status, const std::string& text) {
    std::fprintf(stderr, "korusim: %s\n", text.c_str());
    return status;
}

/// Five descriptors per camera and some per client: the usual limit ends at 150 cameras.
void RaiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

/// From now on, in every thread: the signals wait until `sigwait` takes them.
sigset_t HoldStopSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

/// Reads the camera arguments; gives what is wrong with them, or nothing.
std::string ParseCameras(const std::vector<std::string>& arguments,
                         std::list<CVirtualCamera>& cameras) {
    std::set<std::string> addresses;
    for (const std::string& argument : arguments) {
        const korusim::SParsedCamera parsed = korusim::ParseCamera(argument);
        if (!parsed.error.empty()) return parsed.error;
        if (!addresses.insert(parsed.settings.address).second) {
            return "camera " + parsed.settings.address + ": the address is given twice";
        }
        cameras.emplace_back(parsed.settings);
    }
    return {};
}

int RunCameras(std::list<CVirtualCamera>& cameras) {
    RaiseDescriptorLimit();
    const sigset_t signals = HoldStopSignals();
    std::vector<korusim::SAnnouncement> announcements;
    for (CVirtualCamera& camera : cameras) {
        const std::string error = camera.Open();
        if (!error.empty()) return Complain(Failed, error);
        announcements.push_back({camera.settings().address, camera.settings().name});
    }
    for (CVirtualCamera& camera : cameras) camera.Start();
    korusim::CAnnouncer announcer;
    const std::string error = announcer.Announce(announcements);
    if (!error.empty()) return Complain(Failed, error);
    std::puts("ready");
    std::fflush(stdout);

    int taken = 0;
    ::sigwait(&signals, &taken);
    for (CVirtualCamera& camera : cameras) {
        camera.Stop();
        for (const std::string& summary : camera.summaries()) std::fputs(summary.c_str(), stderr);
    }
    return Good;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Runs virtual infrared cameras: announced by DNS-SD, with node tree, RTSP and RTP.");
    std::vector<std::string> arguments;
    app.add_option("CAMERA", arguments, "cameras to run, see below")->required();
    app.footer(korusim::SettingsHelp());
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        return Complain(WrongUsage, std::string(error.what()) + " (--help lists the settings)");
    }
    std::list<CVirtualCamera> cameras;
    const std::string wrong = ParseCameras(arguments, cameras);
    if (!wrong.empty()) return Complain(WrongUsage, wrong + " (--help lists the settings)");
    return RunCameras(cameras);
}
