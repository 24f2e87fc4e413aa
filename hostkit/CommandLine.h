/// Options that the command lines of several programs have in common.
#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <string>
#include <vector>

#include "FormatChoice.h"

namespace hostkit {

/// Returns what is wrong with a text that should be a whole number; empty if nothing is. CLI11
/// itself would accept "-1" as a very large number.
[[nodiscard]] std::string CheckWhole(const std::string& text);
/// Returns what is wrong with a text that should be a finite number above 0; CLI11's own ranges
/// accept "nan".
[[nodiscard]] std::string CheckPositive(const std::string& text);
/// Parses arguments in UTF-8, which `platform::Arguments` returns. Throws as `CLI::App::parse`
/// does.
void ParseArguments(CLI::App& app, std::vector<std::string> arguments);
/// Adds an option whose value is the name of a file or folder.
CLI::Option* AddPathOption(CLI::App& command, const std::string& name, std::filesystem::path& path,
                           const std::string& description);
/// Adds --format, --size and --type. The choice must outlive the command.
void AddFormatOptions(CLI::App& command, SFormatChoice& choice);

}  // namespace hostkit
