#include "Process.h"

#include <dlfcn.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <fstream>
#include <sstream>

namespace platform {
namespace {

/// Atomic, since the system hands a signal to any thread.
std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

void OnStopSignal(int) { stopRequested = true; }

}  // namespace

CSharedLibrary::CSharedLibrary(const std::string& file)
    : library(::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (library != nullptr) return;
    const char* const why = ::dlerror();
    errorText = why != nullptr ? why : "unknown reason";
}

void* CSharedLibrary::Symbol(const char* name) const noexcept { return ::dlsym(library, name); }

std::string PluginFileName(const std::string& name) { return name + ".so"; }

std::string ProgramFolder() {
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof(path));
    if (length <= 0) return {};
    const std::string file(path, static_cast<std::size_t>(length));
    return file.substr(0, file.rfind('/'));
}

bool ErrorIsTerminal() noexcept { return ::isatty(STDERR_FILENO) == 1; }

void PrepareByteOutput() noexcept { ::signal(SIGPIPE, SIG_IGN); }

void WatchStopSignals() {
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    for (const int number : {SIGINT, SIGTERM}) ::sigaction(number, &action, nullptr);
}

bool StopRequested() noexcept { return stopRequested; }

std::optional<std::uint64_t> DroppedDatagrams() {
    // A line of names and a line of numbers, in an order that differs between kernels.
    constexpr std::string_view wanted = "RcvbufErrors";
    std::ifstream table("/proc/net/snmp");
    std::string line;
    std::string below;
    while (std::getline(table, line) && std::getline(table, below)) {
        if (!line.starts_with("Udp:")) continue;
        std::istringstream names(line);
        std::istringstream numbers(below);
        std::string name;
        std::string number;
        while (names >> name && numbers >> number) {
            std::uint64_t count = 0;
            if (name == wanted && std::istringstream(number) >> count) return count;
        }
    }
    return std::nullopt;
}

std::string ReceiveBufferAdvice() {
    return "raise net.core.rmem_max (sysctl), or run with CAP_NET_ADMIN, which lets the plug-in "
           "go beyond it";
}

bool StartSockets() noexcept { return true; }

}  // namespace platform
