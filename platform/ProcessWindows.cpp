#include "Process.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <filesystem>

namespace platform {
namespace {

/// Atomic, because the system calls the handler on a new thread.
std::atomic<bool> stopRequested{false};

BOOL WINAPI OnConsoleEvent(DWORD event) {
    if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) {
        return stopRequested.exchange(true) ? FALSE : TRUE;
    }
    if (event != CTRL_CLOSE_EVENT) return FALSE;
    stopRequested = true;
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

bool ErrorIsTerminal() noexcept {
    DWORD mode = 0;
    return ::GetConsoleMode(::GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

// On Windows a socket never has the number of a standard stream.
bool PrepareStandardStreams() noexcept { return true; }

void PrepareByteOutput() noexcept { ::_setmode(::_fileno(stdout), _O_BINARY); }

void WatchStopSignals() { ::SetConsoleCtrlHandler(OnConsoleEvent, TRUE); }

bool StopRequested() noexcept { return stopRequested; }

}  // namespace platform
