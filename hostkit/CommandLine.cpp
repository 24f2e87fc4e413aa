#include "CommandLine.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "Path.h"

namespace hostkit {

std::string CheckWhole(const std::string& text) {
    const auto value = ParseWhole(text, std::numeric_limits<std::int64_t>::max());
    return value ? std::string() : "'" + text + "' is not a whole number";
}

std::string CheckPositive(const std::string& text) {
    const auto value = ParseReal(text);
    return value && *value > 0 ? std::string() : "'" + text + "' is not a number above 0";
}

void ParseArguments(CLI::App& app, std::vector<std::string> arguments) {
    std::ranges::reverse(arguments);  // CLI11 takes the last element first
    app.parse(std::move(arguments));
}

CLI::Option* AddPathOption(CLI::App& command, const std::string& name, std::filesystem::path& path,
                           const std::string& description) {
    return command.add_option_function<std::string>(
        name, [&path](const std::string& text) { path = platform::PathFromUtf8(text); },
        description);
}

void AddFormatOptions(CLI::App& command, SFormatChoice& choice) {
    auto* const format = command.add_option("--format", choice.index, "number in the catalogue")
                             ->type_name("N")
                             ->check(CheckWhole);
    command
        .add_option_function<std::string>(
            "--size", [&choice](const std::string& text) { choice.size = ParseSize(text); },
            "WxH, such as 640x512")
        ->excludes(format)
        ->type_name("WxH")
        ->check([](const std::string& text) {
            return ParseSize(text) ? std::string() : "'" + text + "' is not WxH";
        });
    command.add_option("--type", choice.type, "raw, jls or jpeg")
        ->excludes(format)
        ->type_name("TYPE")
        ->check(CLI::IsMember({"raw", "jls", "jpeg"}));
}

}  // namespace hostkit
