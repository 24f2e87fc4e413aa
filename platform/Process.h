/// The running program: its folder, standard streams and stop signals. The plug-in does not use it.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// Returns the arguments of the program, without its name, in UTF-8. `main` passes its own ones,
/// which Windows replaces because they are in the code page of the system there.
[[nodiscard]] std::vector<std::string> Arguments(int argc, char** argv);
/// Returns the file of the running program, or an empty path if the system does not know it.
[[nodiscard]] std::filesystem::path ProgramFile();
/// Runs another program of this folder, named without an extension, with these arguments in UTF-8,
/// and returns its exit status, or nothing if it cannot be started. On POSIX it replaces this
/// process instead, so that signals reach it.
[[nodiscard]] std::optional<int> RunBeside(const std::string& name,
                                           const std::vector<std::string>& arguments);
/// Returns true if standard error is a terminal.
[[nodiscard]] bool ErrorIsTerminal() noexcept;
/// Prepares descriptors 0 to 2, and a console for texts in UTF-8. Call it before anything is
/// opened. A closed one is opened on the null device, because the next file or socket would
/// otherwise take its number and receive what is written to the standard stream. Input then ends at
/// once, writing to standard output fails, and standard error is discarded. A write to a pipe
/// without a reader, or beyond the longest file that the process may write, fails instead of ending
/// the process. Returns false when the null device cannot be opened.
[[nodiscard]] bool PrepareStandardStreams() noexcept;
/// Makes standard output write bytes unchanged.
void PrepareByteOutput() noexcept;

/// Makes an interrupt, a termination signal and the closing of the terminal only set the flag that
/// `StopRequested` returns. A second signal of the same kind ends the process at once. A hang-up
/// that was ignored when the process started (nohup) stays ignored. On Windows these are Ctrl-C and
/// Ctrl-Break, the closing of the console window, logging off, and shutdown; `main` then has about
/// 5 s to end.
void WatchStopSignals();
[[nodiscard]] bool StopRequested() noexcept;
/// Makes `StopRequested` return true, as a signal does. Thread-safe.
void RequestStop() noexcept;
/// Waits until `StopRequested` returns true. Call it on one thread, after `WatchStopSignals`.
void WaitForStop() noexcept;

}  // namespace platform
