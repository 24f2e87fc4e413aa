/// System services that the tools use, other than sockets. The plug-in does not use them.
#pragma once

#include <cstddef>
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
/// Prepares descriptors 0 to 2; call it before anything is opened. A closed one is opened on the
/// null device, because the next file or socket would otherwise take its number and receive what is
/// written to the standard stream. Input then ends at once, writing to standard output fails, and
/// standard error is discarded. A write to a pipe without a reader, or beyond the longest file that
/// the process may write, fails instead of ending the process. Returns false when the null device
/// cannot be opened.
[[nodiscard]] bool PrepareStandardStreams() noexcept;
/// From now on standard output takes bytes unchanged.
void PrepareByteOutput() noexcept;

/// From now on an interrupt, a termination signal and the closing of the terminal only set the flag
/// that `StopRequested` returns; a second signal of the same kind ends the process at once. A
/// hang-up that was ignored when the process started (nohup) stays ignored.
void WatchStopSignals();
[[nodiscard]] bool StopRequested() noexcept;

/// Returns why this process cannot open `more` further descriptors at a time; empty when it can.
[[nodiscard]] std::string DescriptorObstacle(std::size_t more);
/// Descriptors that a search by multicast DNS holds at a time, with the stand-in of `dns_sd`.
inline constexpr std::size_t searchDescriptors = 6;
/// Returns why multicast DNS cannot run in this process with `descriptors` further descriptors;
/// empty when it can. Avahi ends the process when it lacks one, so that its users ask here first.
[[nodiscard]] std::string MulticastDnsObstacle(std::size_t descriptors);
/// Returns whether this process has a TCP connection to an address in dotted form that neither side
/// has closed; none when the system does not tell.
[[nodiscard]] std::optional<bool> IsConnectedTo(const std::string& address, std::uint16_t port);

/// Datagrams that this system has dropped since it was started because a receiver's buffer was
/// full, of all programs; none where it doesn't count them.
[[nodiscard]] std::optional<std::uint64_t> DroppedDatagrams();
/// The setting that bounds such a buffer, and what lifts the bound, for a person to read.
[[nodiscard]] std::string ReceiveBufferAdvice();

/// Makes the socket library ready; nothing to do where the system has no such step.
[[nodiscard]] bool StartSockets() noexcept;

}  // namespace platform
