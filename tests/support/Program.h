/// A program of this build, run as a user runs it.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace test {

/// Runs a program, found in the build's bin folder or else in the path, with pipes on its three
/// streams. The destructor kills it if it still runs.
class CProgram {
   public:
    explicit CProgram(const std::vector<std::string>& nameAndArguments);
    CProgram(const CProgram&) = delete;
    CProgram& operator=(const CProgram&) = delete;
    ~CProgram();

    bool running() const { return process > 0; }
    void Write(const std::string& text) const;
    /// The next line of standard output without its end; empty at the end of output and when none
    /// comes within 60 s.
    std::string ReadLine();
    /// Everything that standard output still brings.
    std::string ReadAll();
    /// Sends a signal.
    void Signal(int number) const;
    /// Closes its input and waits for its end; gives its exit status, 128 and more for a signal.
    int Wait();
    /// What it has written to standard error; call after `Wait`.
    std::string Errors() const;

    std::size_t Threads() const { return Count("task"); }
    std::size_t Descriptors() const { return Count("fd"); }

   private:
    std::size_t Count(const char* what) const;

    pid_t process = -1;
    int input = -1;
    int output = -1;
    int errors = -1;  // a file without a name, so that a full pipe never stops the program
    std::string pending;
};

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// Runs a program to its end.
struct SOutcome {
    int status;
    std::string output;
    std::string errors;
};
SOutcome RunProgram(const std::vector<std::string>& nameAndArguments);
/// Returns the words that run a command in the system's shell.
std::vector<std::string> InShell(const std::string& command);
/// Returns why a test must be skipped whose tool does not answer to `command`; empty when it does.
std::string MissingTool(const std::string& command);
/// True under the sanitizers, which need two descriptors of their own, and more address space than
/// `ulimit -v` could leave them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

/// A simulator that is ready. Ends in order with the scope; a sanitizer's complaint, or any other
/// bad end, fails the test.
class CSimulator : public CProgram {
   public:
    explicit CSimulator(std::vector<std::string> cameras);
    ~CSimulator();
};

}  // namespace test
