#include "Shell.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string_view>
#include <utility>

#include "ShellCommands.h"

namespace qmxhost {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view blanks = " \t\r";

std::string Usage(const SShellCommand& command) {
    std::string text(command.name);
    if (!command.arguments.empty()) text.append(" ").append(command.arguments);
    return text;
}

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

/// Returns the line without its comment. Unless the comment is the whole line, a blank or the end
/// of the line must follow its #, because "Roof #2" is how the second camera of a name is
/// announced.
std::string_view WithoutComment(std::string_view line) {
    line = Trimmed(line);
    if (line.starts_with('#')) return {};
    for (std::size_t at = line.find('#'); at != std::string_view::npos;
         at = line.find('#', at + 1)) {
        const bool blankBefore = blanks.find(line[at - 1]) != std::string_view::npos;
        const bool blankBehind =
            at + 1 == line.size() || blanks.find(line[at + 1]) != std::string_view::npos;
        if (blankBefore && blankBehind) return Trimmed(line.substr(0, at));
    }
    return line;
}

/// Removes and returns the first word of a line that has no blanks at its ends.
std::string_view TakeWord(std::string_view& line) {
    const std::string_view word = line.substr(0, line.find_first_of(blanks));
    line = Trimmed(line.substr(word.size()));
    return word;
}

SArguments SplitArguments(const SShellCommand& command, std::string_view line) {
    SArguments arguments;
    while (!line.empty()) {
        const bool rest = command.rest && arguments.size() + 1 == command.most;
        arguments.emplace_back(rest ? std::exchange(line, {}) : TakeWord(line));
    }
    if (arguments.size() < command.least || arguments.size() > command.most) {
        throw CWrongCommand("wrong number of arguments; usage: " + Usage(command));
    }
    return arguments;
}

/// Rounded to microseconds, to keep the lines short.
double MillisecondsSince(Clock::time_point begun) {
    const std::chrono::duration<double, std::micro> passed = Clock::now() - begun;
    return std::round(passed.count()) / 1000;
}

Json RunCommand(SShellSession& session, const SShellCommand& command, std::string_view line) {
    const Clock::time_point begun = Clock::now();
    Json answer;
    try {
        const SArguments arguments = SplitArguments(command, line);
        if (command.device && !session.device) throw CWrongCommand("no device");
        answer = command.run(session, arguments);
    } catch (const std::exception& failure) {
        // Also exceptions of an operation: a thread that cannot be created, or no memory.
        answer = {{"ok", false}, {"error", failure.what()}};
    }
    if (command.timed) answer["ms"] = MillisecondsSince(begun);
    return answer;
}

Json Answer(SShellSession& session, std::string_view line) {
    const std::string_view name = TakeWord(line);
    const auto command = std::ranges::find(ShellCommands(), name, &SShellCommand::name);
    if (command != ShellCommands().end()) return RunCommand(session, *command, line);
    return {{"ok", false}, {"error", "unknown command '" + std::string(name) + "'"}};
}

}  // namespace

EExit RunShell(CPluginHost& host, std::istream& input) {
    SShellSession session{host, {}, host.NewDevice()};
    std::string text;
    while (std::getline(input, text)) {
        const std::string_view line = WithoutComment(text);
        if (!line.empty()) PrintJson(Answer(session, line));
    }
    return EExit::Done;
}

std::string ShellHelp() {
    std::string text;
    for (const SShellCommand& command : ShellCommands()) text += "  " + Usage(command) + "\n";
    return text;
}

}  // namespace qmxhost
