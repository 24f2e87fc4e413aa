/// Command line of the small host.
#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "DoctorCommand.h"
#include "NetworkState.h"
#include "Process.h"
#include "Shell.h"
#include "StreamCommand.h"
#include "Version.h"

namespace {

using namespace qmxhost;
using SArguments = std::vector<std::string>;

constexpr const char* description =
    "Finds, opens and streams infrared cameras through the camera plug-in qmxcamKORURTSP.";

constexpr const char* generalHelp =
    R"(CAMERA is an IPv4 address, or the name that 'qmxhost list' shows.
Results go to standard output; the log, progress and errors go to standard error.

Examples:
  qmxhost list
  qmxhost formats 192.168.1.20
  qmxhost stream 192.168.1.20 --duration 10
  qmxhost stream Roof --type raw --count 5 --save pictures --as png --palette iron
  qmxhost set Roof FrameRate=30
  qmxhost doctor Roof

Exit status: 0 done, 1 the operation failed, 2 wrong usage, 3 no such camera,
4 the stream ended with fewer frames than asked for, or --strict found frames missing,
5 --check found damage.
)";

constexpr const char* streamHelp =
    R"(Streams until Ctrl-C unless --count or --duration sets a limit. Without a choice
of format it uses the first one of the catalogue. The stream ends when no frame
has arrived for about 10 s, or sooner if the camera has closed its control
connection.

--as native saves frames unchanged: raw frames are 16-bit little-endian rows
without a header (.raw), JPEG-LS frames begin with 4 bytes of the camera before
the image (.jls), JPEG frames are complete files (.jpg). --as png saves pictures
to look at: raw and JPEG-LS as 16-bit grey with stretched contrast, or in false
colours with --palette; JPEG in its own colours. --as tiff records all frames with
their exact values and times in one BigTIFF file. Frames that cannot be decoded are
skipped and counted.
)";

constexpr const char* setHelp =
    R"(The frame rate of a raw camera remains set in the camera. All other properties,
including the rate of a compressed camera, last only as long as the connection of
this command: use 'qmxhost stream --rate' to stream with a rate.
)";

constexpr const char* doctorHelp =
    R"(Checks address, route, node tree and RTSP, streams each format for some seconds,
and prints a line for each step: ok, warning or failed, what was measured, and what
to do. The last line names the most likely cause. Exit status 0 if no step failed.
)";

/// The options of all commands, and the chosen command.
struct SCommandLine {
    std::filesystem::path plugin;
    bool verbose = false;
    bool json = false;
    bool follow = false;
    SCameraChoice camera;
    std::vector<std::string> words;  ///< property names or assignments
    SStreamOptions stream;
    SDoctorOptions doctor;
    std::function<EExit(CPluginHost&)> run;
};

// Each of these functions adds one command, its options, and the function that runs it after the
// whole line has been parsed.

void AddCamera(CLI::App& command, SCameraChoice& choice) {
    command.add_option("CAMERA", choice.nameOrAddress, "address or name")
        ->type_name("")
        ->required();
    command.add_flag("--no-tree", choice.noTree, "do not connect to the camera's node tree");
}

void AddList(CLI::App& app, SCommandLine& line) {
    CLI::App& command = *app.add_subcommand("list", "Show the cameras on the network");
    command.add_flag("--follow", line.follow,
                     "keep searching, and show cameras that appear and disappear");
    command.callback([&line] {
        line.run = [&line](CPluginHost& host) { return RunList(host, line.follow, line.json); };
    });
}

void AddFormats(CLI::App& app, SCommandLine& line) {
    CLI::App& command = *app.add_subcommand("formats", "Show the formats that a camera offers");
    AddCamera(command, line.camera);
    command.callback([&line] {
        line.run = [&line](CPluginHost& host) { return RunFormats(host, line.camera, line.json); };
    });
}

void AddGet(CLI::App& app, SCommandLine& line) {
    CLI::App& command = *app.add_subcommand("get", "Show properties of a camera");
    AddCamera(command, line.camera);
    command.add_option("NAME", line.words, "such as FrameRate; without a name, all properties")
        ->type_name("");
    command.callback([&line] {
        line.run = [&line](CPluginHost& host) {
            return RunGet(host, line.camera, line.words, line.json);
        };
    });
}

void AddSet(CLI::App& app, SCommandLine& line) {
    CLI::App& command = *app.add_subcommand("set", "Set properties of a camera");
    AddCamera(command, line.camera);
    command.add_option("NAME=VALUE", line.words, "such as FrameRate=30")->type_name("")->required();
    command.footer(setHelp);
    command.callback([&line] {
        line.run = [&line](CPluginHost& host) {
            return RunSet(host, line.camera, line.words, line.json);
        };
    });
}

void AddLimitOptions(CLI::App& command, SStreamOptions& stream) {
    command.add_option("--count", stream.count, "stop after N frames")
        ->type_name("N")
        ->check(CheckWhole)
        ->check(CheckPositive);
    command.add_option("--duration", stream.duration, "stop after S seconds")
        ->type_name("S")
        ->check(CheckPositive);
    command.add_option("--skip", stream.skip, "skip the first N frames")
        ->type_name("N")
        ->check(CheckWhole);
    command.add_option("--rate", stream.rate, "frames per second to request from the camera")
        ->type_name("FPS")
        ->check(CheckPositive);
}

void AddSaveOptions(CLI::App& command, SStreamOptions& stream) {
    auto* const save =
        AddPathOption(command, "--save", stream.save.target,
                      "folder for the frames, file for a recording, or - for standard output")
            ->type_name("DIR|FILE|-");
    auto* const form = command
                           .add_option_function<std::string>(
                               "--as",
                               [&stream](const std::string& text) {
                                   stream.save.as = text == "png"    ? ESaveAs::Png
                                                    : text == "tiff" ? ESaveAs::Tiff
                                                                     : ESaveAs::Native;
                               },
                               "native (unchanged), png or tiff (one recording)")
                           ->needs(save)
                           ->type_name("FORM")
                           ->check(CLI::IsMember({"native", "png", "tiff"}));
    command.add_option("--palette", stream.save.palette, "false colours for png")
        ->needs(form)
        ->type_name("NAME")
        ->check(CLI::IsMember(frames::PaletteNames()));
    command.add_flag("--overwrite", stream.save.overwrite, "replace the frames of another run")
        ->needs(save);
    command.add_flag("--strict", stream.strict, "fail with status 4 if frames are missing");
    command.add_flag("--check", stream.check, "verify korusim's checksum in each picture");
}

/// Checks the options against each other.
void RefuseContradictions(const SCommandLine& line) {
    const SSaveOptions& save = line.stream.save;
    const bool toOutput = save.target == standardOutput;
    if (toOutput && line.json) {
        throw CLI::ValidationError("--save", "- and --json would both write to standard output");
    }
    if (toOutput && save.as != ESaveAs::Native) {
        throw CLI::ValidationError("--save",
                                   "- writes native frames only; name a folder or a file");
    }
    if (!save.palette.empty() && save.as != ESaveAs::Png) {
        throw CLI::ValidationError("--palette", "colours pictures: add --as png");
    }
}

void AddStream(CLI::App& app, SCommandLine& line) {
    CLI::App& command =
        *app.add_subcommand("stream", "Stream frames, and count, check or save them");
    AddCamera(command, line.camera);
    AddFormatOptions(command, line.stream.format);
    AddLimitOptions(command, line.stream);
    AddSaveOptions(command, line.stream);
    command.footer(streamHelp);
    // Needs the global options, which may follow the command, and so runs after all are parsed.
    command.final_callback([&line] {
        RefuseContradictions(line);
        line.stream.camera = line.camera;
        line.stream.json = line.json;
        line.run = [&line](CPluginHost& host) { return RunStream(host, line.stream); };
    });
}

void AddDoctor(CLI::App& app, SCommandLine& line) {
    CLI::App& command =
        *app.add_subcommand("doctor", "Find out why a camera does not stream, or loses frames");
    AddCamera(command, line.camera);
    command.add_option("--seconds", line.doctor.seconds, "time for each format (default: 3)")
        ->type_name("S")
        ->check(CheckPositive);
    command.footer(doctorHelp);
    command.final_callback([&line] {
        line.doctor.camera = line.camera;
        line.doctor.json = line.json;
        line.run = [&line](CPluginHost& host) { return RunDoctor(host, line.doctor); };
    });
}

void AddView(CLI::App& app) {
    CLI::App& command = *app.add_subcommand("view", "Show live pictures in a window");
    command.footer("Runs qmxview with the same arguments; 'qmxview --help' lists them.\n");
    command.allow_extras();
    command.final_callback([] { throw CLI::ValidationError("view", "must be the first word"); });
}

/// Runs the live view, which is beside this program, with the arguments after the first one.
EExit RunView(const SArguments& arguments) {
    const auto status = platform::RunBeside("qmxview", {arguments.begin() + 1, arguments.end()});
    if (status) return EExit(*status);
    throw CFailure(EExit::Failed,
                   "cannot start the live view: qmxview is not in the folder of this program");
}

void AddShell(CLI::App& app, SCommandLine& line) {
    CLI::App& command = *app.add_subcommand(
        "shell", "Read commands from standard input; print one line of JSON for each");
    command.footer("Commands, one per line; # begins a comment:\n" + ShellHelp());
    command.callback(
        [&line] { line.run = [](CPluginHost& host) { return RunShell(host, std::cin); }; });
}

/// Returns the error message of CLI11 in the form of all other messages.
std::string Mistake(const CLI::App* app, const CLI::Error& error) {
    const std::vector<std::string> unknown = app->remaining();
    const bool noCommand = app->get_subcommands().empty();
    const std::string what = noCommand && !unknown.empty()
                                 ? "there is no command '" + unknown.front() + "'"
                                 : std::string(error.what());
    return "qmxhost: " + what + "; 'qmxhost --help' and 'qmxhost COMMAND --help' show the usage\n";
}

void SetUp(CLI::App& app, SCommandLine& line) {
    app.fallthrough();  // the options of all commands may follow the command
    app.require_subcommand(1);
    app.set_version_flag("--version", "qmxhost " KORU_VERSION, "print the version and exit");
    app.footer(generalHelp);
    app.failure_message(Mistake);
    AddPathOption(app, "--plugin", line.plugin,
                  "the plug-in (default: beside this program, or the installed one)")
        ->type_name("FILE");
    app.add_flag("--verbose", line.verbose, "show the plug-in's trace lines");
    app.add_flag("--json", line.json, "results as JSON");
    AddList(app, line);
    AddFormats(app, line);
    AddGet(app, line);
    AddSet(app, line);
    AddStream(app, line);
    AddDoctor(app, line);
    AddView(app);
    AddShell(app, line);
}

/// Fills `line`. For the help and for a mistake it prints the text and returns the exit status.
std::optional<EExit> Parse(SCommandLine& line, const SArguments& arguments) {
    CLI::App app(description, "qmxhost");
    SetUp(app, line);
    try {
        hostkit::ParseArguments(app, arguments);
    } catch (const CLI::ParseError& error) {
        std::ostringstream help;
        // CLI11 has a separate status for each kind of mistake; 0 means the help.
        const bool asked = app.exit(error, help, std::cerr) == 0;
        Print(help.str());
        return asked ? EExit::Done : EExit::Usage;
    }
    return std::nullopt;
}

/// The only place that turns failures into a line on standard error and an exit status.
EExit Run(const SArguments& arguments) {
    try {
        if (!arguments.empty() && arguments[0] == "view") return RunView(arguments);
        SCommandLine line;
        if (const auto status = Parse(line, arguments)) return *status;
        qmx::logger().SetVerbose(line.verbose);
        if (!platform::StartSockets())
            throw CFailure(EExit::Failed, "the system's socket library does not start");
        CPluginHost host(line.plugin);
        return line.run(host);
    } catch (const CFailure& failure) {
        PrintError(failure.what());
        return failure.status;
    } catch (const std::exception& failure) {
        PrintError(std::string("unexpected failure: ") + failure.what());
        return EExit::Failed;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (!platform::PrepareStandardStreams()) return static_cast<int>(EExit::Failed);
    return static_cast<int>(Run(platform::Arguments(argc, argv)));
}
