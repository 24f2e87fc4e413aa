#include "Process.h"

#include <fcntl.h>
#include <io.h>
#include <process.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>

namespace platform {
namespace {

/// Atomic, because the system calls the handler on a new thread.
std::atomic<bool> stopRequested{false};

/// Returns an argument in the form from which the called program reads the same argument again:
/// quoted, and with a backslash before each quote and before each backslash that precedes one.
std::string Quoted(const std::string& argument) {
    std::string text = "\"";
    std::size_t backslashes = 0;
    for (const char letter : argument) {
        if (letter == '"') text.append(backslashes + 1, '\\');
        backslashes = letter == '\\' ? backslashes + 1 : 0;
        text += letter;
    }
    return text.append(backslashes, '\\') + '"';
}

BOOL WINAPI OnConsoleEvent(DWORD event) {
    if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) {
        if (StopRequested()) return FALSE;
        RequestStop();
        return TRUE;
    }
    // The window is being closed, or the session ends.
    RequestStop();
    // The system ends the process when this returns, or some seconds later. The end of `main` ends
    // this thread.
    ::Sleep(INFINITE);
    return TRUE;
}

}  // namespace

std::string ProgramFolder() {
    wchar_t path[32768];  // the longest path of the system
    const DWORD length = ::GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)));
    if (length == 0 || length >= std::size(path)) return {};
    return std::filesystem::path(path, path + length).parent_path().string();
}

std::optional<int> RunBeside(const std::string& name, const std::vector<std::string>& arguments) {
    const std::string file = ProgramFolder() + "\\" + name + ".exe";
    std::vector<std::string> words = {Quoted(file)};
    for (const std::string& argument : arguments) words.push_back(Quoted(argument));
    std::vector<const char*> pointers;
    for (const std::string& word : words) pointers.push_back(word.c_str());
    pointers.push_back(nullptr);
    const std::intptr_t status = ::_spawnv(_P_WAIT, file.c_str(), pointers.data());
    if (status == -1) return std::nullopt;
    return static_cast<int>(status);
}

bool ErrorIsTerminal() noexcept {
    DWORD mode = 0;
    return ::GetConsoleMode(::GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

// On Windows a socket never has the number of a standard stream.
bool PrepareStandardStreams() noexcept { return true; }

void PrepareByteOutput() noexcept { ::_setmode(::_fileno(stdout), _O_BINARY); }

void WatchStopSignals() { ::SetConsoleCtrlHandler(OnConsoleEvent, TRUE); }

bool StopRequested() noexcept { return stopRequested; }

void RequestStop() noexcept {
    stopRequested = true;
    stopRequested.notify_all();
}

void WaitForStop() noexcept { stopRequested.wait(false); }

}  // namespace platform
