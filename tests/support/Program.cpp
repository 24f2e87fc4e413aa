#include "Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace test {
namespace {

constexpr int lineLimitMs = 60000;

void Check(bool done, const char* what) {
    if (!done) throw std::runtime_error(what);
}

}  // namespace

CProgram::CProgram(const std::vector<std::string>& nameAndArguments)
    : errors(::memfd_create("errors", MFD_CLOEXEC)) {
    int toProgram[2];
    int fromProgram[2];
    Check(::pipe2(toProgram, O_CLOEXEC) == 0 && ::pipe2(fromProgram, O_CLOEXEC) == 0, "pipe");
    std::vector<std::string> words = nameAndArguments;
    static const bool pathSet =
        ::setenv("PATH", (KORU_BIN_DIR ":" + std::string(::getenv("PATH"))).c_str(), 1) == 0;
    Check(pathSet, "setenv");
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    process = ::fork();
    Check(process >= 0, "fork");
    if (process == 0) {
        ::signal(SIGHUP, SIG_DFL);  // the test runner may ignore it
        ::dup2(toProgram[0], STDIN_FILENO);
        ::dup2(fromProgram[1], STDOUT_FILENO);
        ::dup2(errors, STDERR_FILENO);
        ::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    ::close(toProgram[0]);
    ::close(fromProgram[1]);
    input = toProgram[1];
    output = fromProgram[0];
}

CProgram::~CProgram() {
    if (running()) {
        Signal(SIGKILL);
        Wait();
    }
    for (const int descriptor : {output, errors}) ::close(descriptor);
}

void CProgram::Write(const std::string& text) const {
    Check(::write(input, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "write");
}

std::string CProgram::ReadLine() {
    std::size_t end = pending.find('\n');
    while (end == std::string::npos) {
        char buffer[4096];
        pollfd waiting{output, POLLIN, 0};
        const bool ready = ::poll(&waiting, 1, lineLimitMs) == 1;
        const ssize_t size = ready ? ::read(output, buffer, sizeof(buffer)) : 0;
        if (size <= 0) return std::exchange(pending, {});
        pending.append(buffer, static_cast<std::size_t>(size));
        end = pending.find('\n');
    }
    const std::string line = pending.substr(0, end);
    pending.erase(0, end + 1);
    return line;
}

std::string CProgram::ReadAll() {
    std::string all = std::exchange(pending, {});
    char buffer[65536];
    for (ssize_t size; (size = ::read(output, buffer, sizeof(buffer))) > 0;) {
        all.append(buffer, static_cast<std::size_t>(size));
    }
    return all;
}

void CProgram::Signal(int number) const { ::kill(process, number); }

int CProgram::Wait() {
    if (input >= 0) ::close(std::exchange(input, -1));
    int status = 0;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string CProgram::Errors() const {
    std::string text(static_cast<std::size_t>(::lseek(errors, 0, SEEK_END)), '\0');
    text.resize(static_cast<std::size_t>(::pread(errors, text.data(), text.size(), 0)));
    return text;
}

std::size_t CProgram::Count(const char* what) const {
    using Iterator = std::filesystem::directory_iterator;
    const std::string folder = "/proc/" + std::to_string(process) + "/" + what;
    return static_cast<std::size_t>(std::distance(Iterator(folder), Iterator()));
}

SOutcome RunProgram(const std::vector<std::string>& nameAndArguments) {
    CProgram program(nameAndArguments);
    SOutcome outcome{};
    outcome.output = program.ReadAll();
    outcome.status = program.Wait();
    outcome.errors = program.Errors();
    return outcome;
}

std::vector<std::string> InShell(const std::string& command) { return {"sh", "-c", command}; }

std::string MissingTool(const std::string& command) {
    if (RunProgram(InShell(command)).status == 0) return {};
    return "'" + command + "' fails; scripts/setup installs what it needs";
}

CSimulator::CSimulator(std::vector<std::string> cameras)
    : CProgram([&] {
          cameras.insert(cameras.begin(), "korusim");
          return cameras;
      }()) {
    Check(ReadLine() == "ready", "korusim is not ready");
}

CSimulator::~CSimulator() {
    if (!running()) return;
    Signal(SIGTERM);
    EXPECT_EQ(Wait(), 0) << Errors();
}

}  // namespace test
