/// The output of the small host: exit statuses, failures that end a command, results on standard
/// output and everything else on standard error.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "qmx.h"

namespace qmxhost {

/// The exit status of the process.
enum class EExit : int {
    Done = 0,
    Failed = 1,
    Usage = 2,
    NoCamera = 3,
    TooFewFrames = 4,
    Damage = 5,
};

/// Thrown to end a command. The text says in one line what failed, on which camera, and what to do
/// next; `main` prints it.
class CFailure : public std::runtime_error {
   public:
    CFailure(EExit exitStatus, const std::string& text)
        : std::runtime_error(text), status(exitStatus) {}

    const EExit status;
};

/// Keeps the keys in the order in which they were set, because people read these lines too.
using Json = nlohmann::ordered_json;

/// Writes a text to standard output and flushes it. Throws a `CFailure` if not all of it can be
/// written: a result that nobody receives is not a success.
void Print(const std::string& text);
/// Prints a value as one line. Camera names come from the network: bytes that are not UTF-8 are
/// replaced, so that they do not make the whole line fail.
void PrintJson(const Json& value);
/// Writes "qmxhost: text" to standard error.
void PrintError(const std::string& text);
/// Writes a hint for a person to standard error.
void PrintHint(const std::string& text);

[[nodiscard]] inline std::string Text(const qmx::CString& text) { return text.c_str(); }
/// Returns a text from the network without control characters, which could control a terminal.
[[nodiscard]] std::string Printable(std::string text);

}  // namespace qmxhost
