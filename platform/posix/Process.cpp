#include "Process.h"

#include <fcntl.h>
#include <semaphore.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>

namespace platform {
namespace {

/// Atomic, because the system delivers a signal to any thread.
std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

/// Posted with each stop signal, because a signal handler may do that.
sem_t stopPosted;

void OnStopSignal(int) { RequestStop(); }

}  // namespace

std::vector<std::string> Arguments(int argc, char** argv) {
    if (argc < 1) return {};
    return {argv + 1, argv + argc};
}

std::filesystem::path ProgramFile() {
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof(path));
    if (length <= 0) return {};
    return {path, path + length};
}

std::optional<int> RunBeside(const std::string& name, const std::vector<std::string>& arguments) {
    std::string file = ProgramFile().replace_filename(name);
    std::vector<std::string> words = arguments;
    std::vector<char*> pointers = {file.data()};
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    ::execv(file.c_str(), pointers.data());
    return std::nullopt;
}

bool ErrorIsTerminal() noexcept { return ::isatty(STDERR_FILENO) == 1; }

bool PrepareStandardStreams() noexcept {
    for (const int number : {SIGPIPE, SIGXFSZ}) ::signal(number, SIG_IGN);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) >= 0) continue;
        // The lowest free number is the one that is missing. Standard output is opened for reading,
        // so that writing results to it fails instead of losing them silently.
        const int mode = descriptor == STDERR_FILENO ? O_WRONLY : O_RDONLY;
        if (::open("/dev/null", mode) != descriptor) return false;
    }
    return true;
}

void PrepareByteOutput() noexcept {}

void WatchStopSignals() {
    ::sem_init(&stopPosted, 0, 0);
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    for (const int number : {SIGINT, SIGTERM}) ::sigaction(number, &action, nullptr);
    struct sigaction atStart {};
    ::sigaction(SIGHUP, nullptr, &atStart);
    if (atStart.sa_handler != SIG_IGN) ::sigaction(SIGHUP, &action, nullptr);
}

bool StopRequested() noexcept { return stopRequested; }

void RequestStop() noexcept {
    const int keptForTheInterruptedCode = errno;
    stopRequested = true;
    ::sem_post(&stopPosted);
    errno = keptForTheInterruptedCode;
}

void WaitForStop() noexcept {
    while (!stopRequested) ::sem_wait(&stopPosted);
}

}  // namespace platform
