/// Runs the programs of this build.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace test {

/// Runs a program from the build's bin folder or the path, with pipes to its standard streams. The
/// destructor kills it if it still runs.
class CProgram {
   public:
    explicit CProgram(const std::vector<std::string>& nameAndArguments);
    CProgram(const CProgram&) = delete;
    CProgram& operator=(const CProgram&) = delete;
    ~CProgram();

    bool running() const { return process > 0; }
    pid_t id() const { return process; }
    void Write(const std::string& text) const;
    /// Returns the next line of standard output without its end; empty at the end of the output and
    /// after 60 s.
    std::string ReadLine();
    /// Returns the rest of standard output.
    std::string ReadAll();
    void Signal(int number) const;
    /// Closes its input, waits for its end and returns the exit status, 128 or more for a signal.
    int Wait();
    /// Returns its standard error. Call after `Wait`.
    std::string Errors() const;

    std::size_t Threads() const { return Count("task"); }
    std::size_t Descriptors() const { return Count("fd"); }

   private:
    std::size_t Count(const char* what) const;

    pid_t process = -1;
    int input = -1;
    int output = -1;
    int errors = -1;  // a file, because a full pipe would block the program
    std::string pending;
};

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

struct SOutcome {
    int status;
    std::string output;
    std::string errors;
};
SOutcome RunProgram(const std::vector<std::string>& nameAndArguments);
/// Returns the words that run a command in the system's shell.
std::vector<std::string> InShell(const std::string& command);
/// Returns why to skip a test if `command` fails; otherwise an empty text.
std::string MissingTool(const std::string& command);
/// True under the sanitizers, which need two descriptors and more address space than `ulimit -v`
/// allows.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

/// A running simulator. The destructor ends it; a sanitizer report, or any other failure, fails the
/// test.
class CSimulator : public CProgram {
   public:
    explicit CSimulator(std::vector<std::string> cameras);
    ~CSimulator();
};

}  // namespace test
