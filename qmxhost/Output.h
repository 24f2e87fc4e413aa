/// How the small host speaks: exit statuses, failures that end a command, JSON on standard output
/// and everything else on standard error.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "qmx.h"

namespace qmxhost {

/// What the process answers to whoever started it.
enum class EExit : int {
    Done = 0,
    Failed = 1,
    Usage = 2,
    NoCamera = 3,
    TooFewFrames = 4,
    Damage = 5,
};

/// Ends a command. The text says in one line what failed, on which camera, and what to look at
/// next; `main` prints it.
class CFailure : public std::runtime_error {
   public:
    CFailure(EExit exitStatus, const std::string& text)
        : std::runtime_error(text), status(exitStatus) {}

    const EExit status;
};

/// Keeps the keys in the order in which they were set: a person reads these lines too.
using Json = nlohmann::ordered_json;

/// Writes a text to standard output and flushes it. Throws a `CFailure` when not all of it can be
/// written: a result that reaches nobody is not a success.
void Print(const std::string& text);
/// Writes one value as one line, as `Print` does. Camera names come off the network: bytes that
/// aren't UTF-8 are replaced instead of failing the whole answer.
void PrintJson(const Json& value);
/// Writes "qmxhost: text" to standard error.
void PrintError(const std::string& text);
/// Writes a hint for a person to standard error.
void PrintHint(const std::string& text);

[[nodiscard]] inline std::string Text(const qmx::CString& text) { return text.c_str(); }
/// A text off the network without control characters, which could steer a person's terminal.
[[nodiscard]] std::string Printable(std::string text);

}  // namespace qmxhost
