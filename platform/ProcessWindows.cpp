#include "Process.h"

#include <winsock2.h>
// After <winsock2.h>, which it would otherwise replace by the older one.
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace platform {
namespace {

/// Atomic, since the system makes a thread to tell the news.
std::atomic<bool> stopRequested{false};

BOOL WINAPI OnConsoleEvent(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
    return stopRequested.exchange(true) ? FALSE : TRUE;
}

}  // namespace

// The plug-in's own folder is searched too: the host's libraries may stand beside it. That takes a
// whole path.
CSharedLibrary::CSharedLibrary(const std::string& file)
    : library(
          ::LoadLibraryExW(std::filesystem::absolute(file).c_str(), nullptr,
                           LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS)) {
    if (library != nullptr) return;
    errorText = std::system_category().message(static_cast<int>(::GetLastError()));
}

void* CSharedLibrary::Symbol(const char* name) const noexcept {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

std::string PluginFileName(const std::string& name) { return name + ".dll"; }

std::string ProgramFolder() {
    wchar_t path[32768];  // the longest there is
    const DWORD length = ::GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)));
    if (length == 0 || length >= std::size(path)) return {};
    return std::filesystem::path(path, path + length).parent_path().string();
}

bool ErrorIsTerminal() noexcept {
    DWORD mode = 0;
    return ::GetConsoleMode(::GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

void PrepareByteOutput() noexcept { ::_setmode(::_fileno(stdout), _O_BINARY); }

void WatchStopSignals() { ::SetConsoleCtrlHandler(OnConsoleEvent, TRUE); }

bool StopRequested() noexcept { return stopRequested; }

std::optional<std::uint64_t> DroppedDatagrams() {
    return std::nullopt;  // counted, but with datagrams that were dropped for other reasons
}

std::string ReceiveBufferAdvice() {
    return "Windows sets no bound to such a buffer but memory; close what keeps the machine busy";
}

bool StartSockets() noexcept {
    WSADATA about;
    return ::WSAStartup(MAKEWORD(2, 2), &about) == 0;  // until the process ends
}

}  // namespace platform
