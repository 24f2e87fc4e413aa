/// System services that the tools use, other than sockets. The plug-in does not use them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// A shared library loaded at run time. It stays loaded until the process ends, because objects of
/// its classes may outlive this one.
class CSharedLibrary {
   public:
    /// Loads a file; on failure `valid` is false and `error` says why.
    explicit CSharedLibrary(const std::string& file);

    [[nodiscard]] bool valid() const noexcept { return library != nullptr; }
    [[nodiscard]] const std::string& error() const noexcept { return errorText; }
    /// An exported function; null when there is none of that name.
    [[nodiscard]] void* Symbol(const char* name) const noexcept;

   private:
    void* library = nullptr;
    std::string errorText;
};

/// File name of a loadable plug-in on this system, such as "x.so" for "x".
[[nodiscard]] std::string PluginFileName(const std::string& name);
/// Returns the folder of the running program, or an empty text when the system does not know it.
[[nodiscard]] std::string ProgramFolder();
/// True when standard error goes to a terminal.
[[nodiscard]] bool ErrorIsTerminal() noexcept;
/// From now on standard output takes bytes unchanged, and a reader that has gone away is a failed
/// write instead of the end of the process.
void PrepareByteOutput() noexcept;

/// From now on an interrupt or termination signal only sets the flag that `StopRequested` gives;
/// a second one ends the process the hard way.
void WatchStopSignals();
[[nodiscard]] bool StopRequested() noexcept;

/// Datagrams that this system has dropped since it was started because a receiver's buffer was
/// full, of all programs; none where it doesn't count them.
[[nodiscard]] std::optional<std::uint64_t> DroppedDatagrams();
/// The setting that bounds such a buffer, and what lifts the bound, for a person to read.
[[nodiscard]] std::string ReceiveBufferAdvice();

/// Makes the socket library ready; nothing to do where the system has no such step.
[[nodiscard]] bool StartSockets() noexcept;

}  // namespace platform
