/// Failures of a host program, and texts from the network that it shows.
#pragma once

#include <stdexcept>
#include <string>

#include "qmx.h"

namespace hostkit {

/// The exit status of a host program.
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

    EExit status;
};

[[nodiscard]] inline std::string Text(const qmx::CString& text) { return text.c_str(); }
/// Returns a text from the network without control characters, which could control a terminal.
[[nodiscard]] std::string Printable(std::string text);

}  // namespace hostkit
