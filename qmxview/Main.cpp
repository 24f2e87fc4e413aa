/// Command line of the live view.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <optional>
#include <sstream>

#include "Arguments.h"
#include "CommandLine.h"
#include "NetworkState.h"
#include "Process.h"
#include "Version.h"
#include "Viewer.h"

namespace {

using namespace qmxview;
using hostkit::CFailure;
using hostkit::EExit;
using SArguments = std::vector<std::string>;

constexpr const char* description =
    "Shows the live pictures of infrared cameras, through the camera plug-in qmxcamKORURTSP.";

constexpr const char* generalHelp =
    R"(CAMERA is an IPv4 address, or the name that 'qmxhost list' shows. Press H in the window to see
its keys. Snapshots and recordings go to the current folder. When the view ends, it prints how many
frames it received and showed.

Examples:
  qmxview Roof
  qmxview Roof Yard Gate Lab --palette rainbow
  qmxview 192.168.1.20 --scale 0.04,-273.15,°C --levels 7000:8000
  qmxview Roof --screenshot roof.png --after 10

Exit status: 0 done, 1 the operation failed, 2 wrong usage, 3 no such camera,
4 too few frames for --screenshot.
)";

struct SCommandLine {
    std::filesystem::path plugin;
    bool verbose = false;
    std::vector<std::string> cameras;
    bool noTree = false;
    hostkit::SFormatChoice format;
    std::optional<double> rate;
    SViewOptions view;
};

/// Parses "auto" or "LOW:HIGH".
std::optional<frames::SLevels> ParseLevels(const std::string& text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) return std::nullopt;
    const auto low = hostkit::ParseWhole(text.substr(0, colon), 65535);
    const auto high = hostkit::ParseWhole(text.substr(colon + 1), 65535);
    if (!low || !high || *low > *high) return std::nullopt;
    return frames::SLevels{static_cast<double>(*low), static_cast<double>(*high)};
}

std::string CheckLevels(const std::string& text) {
    if (text == "auto" || ParseLevels(text)) return {};
    return "'" + text + "' is neither auto nor LOW:HIGH, two values from 0 to 65535";
}

std::string CheckScale(const std::string& text) {
    if (ParseScale(text)) return {};
    return "'" + text + "' is not GAIN,OFFSET,UNIT, such as 0.04,-273.15,°C; the gain cannot be 0";
}

std::string CheckPercentile(const std::string& text) {
    const auto value = hostkit::ParseReal(text);
    return value && *value >= 0 && *value < 50 ? "" : "'" + text + "' is not from 0 to below 50";
}

std::string CheckZoom(const std::string& text) {
    const auto value = hostkit::ParseReal(text);
    if (value && *value >= leastZoom && *value <= mostZoom) return {};
    return "'" + text + "' is not from 0.125 to 64";
}

void AddPictureOptions(CLI::App& app, SCommandLine& line) {
    SPaneSettings& settings = line.view.settings;
    app.add_option("--palette", settings.palette, "colours")
        ->type_name("NAME")
        ->check(CLI::IsMember(frames::PaletteNames()))
        ->capture_default_str();
    app.add_option_function<std::string>(
           "--levels",
           [&settings](const std::string& text) {
               const auto locked = ParseLevels(text);
               settings.automaticLevels = !locked;
               settings.lockedLevels = locked.value_or(frames::SLevels{});
           },
           "auto, or the values of the coldest and the hottest colour")
        ->type_name("auto|LOW:HIGH")
        ->check(CheckLevels);
    app.add_option("--percentile", settings.percentile,
                   "percentage of the pixels that automatic levels leave out at either end")
        ->type_name("P")
        ->check(CheckPercentile)
        ->capture_default_str();
    app.add_option_function<std::string>(
           "--scale", [&line](const std::string& text) { line.view.scale = ParseScale(text); },
           "also show values as value * GAIN + OFFSET in a unit")
        ->type_name("GAIN,OFFSET,UNIT")
        ->check(CheckScale);
    app.add_option("--zoom", line.view.zoom,
                   "screen pixels for each pixel, 0.125 to 64; without it, fit")
        ->type_name("N")
        ->check(CheckZoom);
}

void AddWindowOptions(CLI::App& app, SCommandLine& line) {
    app.add_option_function<std::string>(
           "--renderer",
           [&line](const std::string& text) {
               line.view.renderer = text == "software" ? ERenderer::Software : ERenderer::Automatic;
           },
           "auto, or software to draw without a graphics processor")
        ->type_name("NAME")
        ->check(CLI::IsMember({"auto", "software"}));
    app.add_option("--ui-scale", line.view.uiScale,
                   "size of texts, 1 on an ordinary screen; without it, as the screen")
        ->type_name("N")
        ->check(CLI::Range(0.5, 4.0).description(""));
    auto* const screenshot =
        hostkit::AddPathOption(
            app, "--screenshot", line.view.screenshot,
            "save the window as a PNG file, with the values of the pictures, and end")
            ->type_name("FILE");
    app.add_option("--after", line.view.after, "frames of each camera to show before --screenshot")
        ->needs(screenshot)
        ->type_name("N")
        ->check(hostkit::CheckWhole)
        ->check(hostkit::CheckPositive);
    app.add_option("--slow-screen", line.view.slowMs, "for tests: wait MS in each pass")
        ->type_name("MS")
        ->check(hostkit::CheckWhole)
        ->group("");
}

void SetUp(CLI::App& app, SCommandLine& line) {
    app.set_version_flag("--version", "qmxview " KORU_VERSION, "print the version and exit");
    app.footer(generalHelp);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return "qmxview: " + std::string(error.what()) + "; 'qmxview --help' shows the usage\n";
    });
    app.add_option("CAMERA", line.cameras, "addresses or names")->type_name("")->required();
    hostkit::AddFormatOptions(app, line.format);
    app.add_option("--rate", line.rate, "frames per second to request from the cameras")
        ->type_name("FPS")
        ->check(hostkit::CheckPositive);
    AddPictureOptions(app, line);
    AddWindowOptions(app, line);
    app.add_flag("--no-tree", line.noTree, "do not connect to the node trees of the cameras");
    hostkit::AddPathOption(app, "--plugin", line.plugin,
                           "the plug-in (default: beside this program, or the installed one)")
        ->type_name("FILE");
    app.add_flag("--verbose", line.verbose, "show the plug-in's trace lines");
}

/// Checks options against each other, and completes the view's options.
void Complete(const CLI::App& app, SCommandLine& line) {
    if (!line.view.settings.automaticLevels && app.count("--percentile") != 0) {
        throw CLI::ValidationError("--percentile", "applies to automatic levels only");
    }
    const std::uint32_t flags =
        line.noTree ? hostkit::openStream : hostkit::openTree | hostkit::openStream;
    for (const std::string& camera : line.cameras) {
        line.view.cameras.push_back({camera, flags, line.format, line.rate});
    }
}

/// Fills `line`. For the help and for a mistake it prints the text and returns the exit status.
std::optional<EExit> Parse(SCommandLine& line, const SArguments& arguments) {
    CLI::App app(description, "qmxview");
    SetUp(app, line);
    try {
        hostkit::ParseArguments(app, arguments);
        Complete(app, line);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, std::cout, std::cerr) == 0 ? EExit::Done : EExit::Usage;
    }
    return std::nullopt;
}

EExit PrintFailure(const std::string& text, EExit status) {
    std::fprintf(stderr, "qmxview: %s\n", text.c_str());
    return status;
}

EExit Run(const SArguments& arguments) {
    try {
        SCommandLine line;
        if (const auto status = Parse(line, arguments)) return *status;
        qmx::logger().SetVerbose(line.verbose);
        if (!platform::StartSockets())
            throw CFailure(EExit::Failed, "the system's socket library does not start");
        platform::WatchStopSignals();
        hostkit::CPluginHost host(line.plugin);
        return CViewer(host, line.view).Run();
    } catch (const CFailure& failure) {
        return PrintFailure(failure.what(), failure.status);
    } catch (const std::exception& failure) {
        return PrintFailure(std::string("unexpected failure: ") + failure.what(), EExit::Failed);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (!platform::PrepareStandardStreams()) return static_cast<int>(EExit::Failed);
    return static_cast<int>(Run(platform::Arguments(argc, argv)));
}
