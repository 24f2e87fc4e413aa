#include "Process.h"

#include <fcntl.h>
#include <io.h>
#include <process.h>
#include <windows.h>
// Needs <windows.h> before it.
#include <shellapi.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>

#include "SessionEnd.h"
#include "WideText.h"

namespace platform {
namespace {

/// Atomic, because the system calls the handler on a new thread.
std::atomic<bool> stopRequested{false};

/// Returns an argument in the form from which the called program reads the same argument again:
/// quoted, and with a backslash before each quote and before each backslash that precedes one.
std::wstring Quoted(const std::wstring& argument) {
    std::wstring text = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t letter : argument) {
        if (letter == L'"') text.append(backslashes + 1, L'\\');
        backslashes = letter == L'\\' ? backslashes + 1 : 0;
        text += letter;
    }
    return text.append(backslashes, L'\\') + L'"';
}

BOOL WINAPI OnConsoleEvent(DWORD event) {
    if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) {
        if (StopRequested()) return FALSE;
        RequestStop();
        return TRUE;
    }
    // The console window is being closed.
    RequestStop();
    // The system ends the process when this returns, or some seconds later. The end of `main` ends
    // this thread.
    ::Sleep(INFINITE);
    return TRUE;
}

}  // namespace

std::vector<std::string> Arguments(int, char**) {
    struct SFree {
        void operator()(wchar_t** words) const { ::LocalFree(words); }
    };
    int count = 0;
    const std::unique_ptr<wchar_t*[], SFree> words(
        ::CommandLineToArgvW(::GetCommandLineW(), &count));
    std::vector<std::string> arguments;
    for (int i = 1; words != nullptr && i < count; ++i) arguments.push_back(Narrow(words.get()[i]));
    return arguments;
}

std::filesystem::path ProgramFile() {
    wchar_t path[32768];  // the longest path of the system
    const DWORD length = ::GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)));
    if (length == 0 || length >= std::size(path)) return {};
    return {path, path + length};
}

std::optional<int> RunBeside(const std::string& name, const std::vector<std::string>& arguments) {
    std::filesystem::path file = ProgramFile();
    file.replace_filename(Widen(name) + L".exe");
    std::vector<std::wstring> words = {Quoted(file)};
    for (const std::string& argument : arguments) words.push_back(Quoted(Widen(argument)));
    std::vector<const wchar_t*> pointers;
    for (const std::wstring& word : words) pointers.push_back(word.c_str());
    pointers.push_back(nullptr);
    // Ctrl-C reaches both programs; this one must wait until the other one has ended.
    ::SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
    const std::intptr_t status = ::_wspawnv(_P_WAIT, file.c_str(), pointers.data());
    if (status == -1) return std::nullopt;
    return static_cast<int>(status);
}

bool ErrorIsTerminal() noexcept {
    DWORD mode = 0;
    return ::GetConsoleMode(::GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

// On Windows a socket never has the number of a standard stream.
bool PrepareStandardStreams() noexcept {
    // The console keeps its code page after the program, so the old one is restored.
    static const UINT oldCodePage = ::GetConsoleOutputCP();
    if (oldCodePage != 0 && oldCodePage != CP_UTF8 && ::SetConsoleOutputCP(CP_UTF8) != 0) {
        std::atexit([] { ::SetConsoleOutputCP(oldCodePage); });
    }
    return true;
}

void PrepareByteOutput() noexcept { ::_setmode(::_fileno(stdout), _O_BINARY); }

void WatchStopSignals() {
    ::SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
    WatchSessionEnd();
}

bool StopRequested() noexcept { return stopRequested; }

void RequestStop() noexcept {
    stopRequested = true;
    stopRequested.notify_all();
}

void WaitForStop() noexcept { stopRequested.wait(false); }

}  // namespace platform
