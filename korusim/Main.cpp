// The camera simulator: runs the virtual cameras of its command line until it is asked to end.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Announcer.h"
#include "CameraSettings.h"
#include "ImageFiles.h"
#include "ModelContent.h"
#include "NetworkState.h"
#include "Path.h"
#include "Process.h"
#include "RecordedContent.h"
#include "Version.h"
#include "VirtualCamera.h"

namespace {

using korusim::CVirtualCamera;
using korusim::SCameraSettings;

enum EExit { Good = 0, Failed = 1, WrongUsage = 2 };

/// Descriptors of one camera: a wake-up, two listeners, and the sockets for RTP and RTCP.
constexpr std::size_t cameraDescriptors = 5;
/// The file of a camera that sends the user's pictures or replays a capture.
constexpr std::size_t fileDescriptors = 1;
/// Descriptors of the announcement: a pipe, a multicast socket, one for changes of interfaces, and
/// one that is open briefly while the interface of a camera is looked up.
constexpr std::size_t announcerDescriptors = 5;
/// The least that one client needs: a control connection and one to the node tree.
constexpr std::size_t clientDescriptors = 2;

int PrintError(EExit status, const std::string& text) {
    std::fprintf(stderr, "korusim: %s\n", text.c_str());
    return status;
}

/// Writes a text to standard output. Returns false if not all of it could be written.
bool Print(const std::string& text) {
    return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
}

int PrintOutputError() {
    return PrintError(Failed,
                      std::string("cannot write to standard output: ") + std::strerror(errno));
}

/// Parses the camera arguments. Returns what is wrong with them, or an empty text.
std::string ParseCameras(const std::vector<std::string>& arguments,
                         std::vector<SCameraSettings>& cameras) {
    std::set<std::string> addresses;
    for (const std::string& argument : arguments) {
        const korusim::SParsedCamera parsed = korusim::ParseCamera(argument);
        if (!parsed.error.empty()) return parsed.error;
        if (!addresses.insert(parsed.settings.address).second) {
            return "camera " + parsed.settings.address + ": the address is given twice";
        }
        cameras.push_back(parsed.settings);
    }
    return {};
}

/// Opens the files that a camera serves and completes its settings by them. Throws
/// `std::runtime_error`.
std::unique_ptr<korusim::CCameraContent> OpenContent(SCameraSettings& settings) {
    if (!settings.capture.empty()) {
        auto content = std::make_unique<korusim::CRecordedContent>(settings);
        if (!content->damage().empty()) {
            std::fprintf(stderr, "korusim: %s ends early: %s\n",
                         platform::Utf8Text(settings.capture).c_str(), content->damage().c_str());
        }
        settings.rate = content->frameRate();
        return content;
    }
    std::shared_ptr<const korusim::CImageFiles> images;
    if (!settings.images.empty()) {
        images = std::make_shared<const korusim::CImageFiles>(settings.images);
        korusim::UseImageSize(settings, images->size());
    }
    return std::make_unique<korusim::CModelContent>(settings, std::move(images));
}

/// Returns what went wrong, or an empty text.
std::string MakeCameras(std::vector<SCameraSettings> settings, std::list<CVirtualCamera>& cameras) {
    for (SCameraSettings& each : settings) {
        try {
            auto content = OpenContent(each);
            cameras.emplace_back(each, std::move(content));
        } catch (const std::runtime_error& failure) {
            return "camera " + each.address + ": " + failure.what();
        }
    }
    return {};
}

/// Opens, starts and announces the cameras. Returns what went wrong, or an empty text.
std::string StartCameras(std::list<CVirtualCamera>& cameras, korusim::CAnnouncer& announcer) {
    // Checked before the first socket: Avahi aborts the process when it lacks a descriptor, and a
    // camera that cannot accept a connection is not ready.
    std::size_t descriptors = announcerDescriptors + clientDescriptors;
    for (const CVirtualCamera& camera : cameras) {
        descriptors += cameraDescriptors;
        const bool readsFile = !camera.settings.images.empty() || !camera.settings.capture.empty();
        if (readsFile) descriptors += fileDescriptors;
    }
    const std::string obstacle = platform::MulticastDnsObstacle(descriptors);
    if (!obstacle.empty()) return obstacle;
    std::vector<korusim::SAnnouncement> announcements;
    for (CVirtualCamera& camera : cameras) {
        const std::string error = camera.Open();
        if (!error.empty()) return error;
        announcements.push_back({camera.settings.address, camera.settings.name});
    }
    for (CVirtualCamera& camera : cameras) {
        const std::string error = camera.Start();
        if (!error.empty()) return error;
    }
    return announcer.Announce(announcements);
}

int RunCameras(std::vector<SCameraSettings> settings) {
    std::list<CVirtualCamera> cameras;
    const std::string unreadable = MakeCameras(std::move(settings), cameras);
    if (!unreadable.empty()) return PrintError(Failed, unreadable);
    platform::RaiseDescriptorLimit();
    platform::WatchStopSignals();
    korusim::CAnnouncer announcer;
    const std::string error = StartCameras(cameras, announcer);
    if (!error.empty()) return PrintError(Failed, error);
    if (!Print("ready\n")) return PrintOutputError();

    platform::WaitForStop();
    EExit status = Good;
    for (CVirtualCamera& camera : cameras) {
        camera.Stop();
        for (const std::string& summary : camera.summaries()) std::fputs(summary.c_str(), stderr);
        if (!camera.failure().empty()) status = EExit(PrintError(Failed, camera.failure()));
    }
    return status;
}

/// Reads the command line and runs its cameras.
int Run(std::vector<std::string> commandLine) {
    CLI::App app(
        "Runs virtual infrared cameras: announced by DNS-SD, with node tree, RTSP and RTP.",
        "korusim");
    app.set_version_flag("--version", "korusim " KORU_VERSION, "print the version and exit");
    std::vector<std::string> arguments;
    app.add_option("CAMERA", arguments, "cameras to run, see below")->type_name("")->required();
    app.footer(korusim::SettingsHelp());
    try {
        std::ranges::reverse(commandLine);  // CLI11 takes the last element first
        app.parse(std::move(commandLine));
    } catch (const CLI::CallForHelp&) {
        return Print(app.help()) ? Good : PrintOutputError();
    } catch (const CLI::CallForVersion& version) {
        return Print(version.what() + std::string("\n")) ? Good : PrintOutputError();
    } catch (const CLI::ParseError& error) {
        return PrintError(WrongUsage, std::string(error.what()) + " (--help lists the settings)");
    }
    std::vector<SCameraSettings> cameras;
    const std::string wrong = ParseCameras(arguments, cameras);
    if (!wrong.empty()) return PrintError(WrongUsage, wrong + " (--help lists the settings)");
    return RunCameras(std::move(cameras));
}

}  // namespace

int main(int argc, char** argv) {
    if (!platform::PrepareStandardStreams()) return Failed;
    if (!platform::StartSockets()) return PrintError(Failed, "the system refuses to open sockets");
    try {
        return Run(platform::Arguments(argc, argv));
    } catch (const std::exception& failure) {
        return PrintError(Failed, std::string("cannot continue: ") + failure.what());
    }
}
