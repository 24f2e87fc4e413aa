#include "Process.h"

#include <winsock2.h>
// After <winsock2.h>, which it would otherwise replace by the older one.
#include <fcntl.h>
#include <io.h>
#include <iphlpapi.h>
#include <windows.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <span>
#include <system_error>
#include <vector>

namespace platform {
namespace {

/// Atomic, since the system makes a thread to tell the news.
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

// A socket never takes the number of a standard stream here.
bool PrepareStandardStreams() noexcept { return true; }

void PrepareByteOutput() noexcept { ::_setmode(::_fileno(stdout), _O_BINARY); }

void WatchStopSignals() { ::SetConsoleCtrlHandler(OnConsoleEvent, TRUE); }

bool StopRequested() noexcept { return stopRequested; }

// The limits of this system are those of memory, and its own service does the browsing.
std::string DescriptorObstacle(std::size_t) { return {}; }
std::string MulticastDnsObstacle(std::size_t) { return {}; }

std::optional<bool> IsConnectedTo(const std::string& address, std::uint16_t port) {
    in_addr to{};
    if (::inet_pton(AF_INET, address.c_str(), &to) != 1) return std::nullopt;
    // The table may grow between the question for its size and the question for its contents.
    std::vector<std::max_align_t> table;
    DWORD bytes = 0;
    DWORD answer = ERROR_INSUFFICIENT_BUFFER;
    for (int tries = 0; tries < 4 && answer == ERROR_INSUFFICIENT_BUFFER; ++tries) {
        table.resize(bytes / sizeof(std::max_align_t) + 1);
        bytes = static_cast<DWORD>(table.size() * sizeof(std::max_align_t));
        answer =
            ::GetExtendedTcpTable(table.data(), &bytes, FALSE, AF_INET, TCP_TABLE_OWNER_PID_ALL, 0);
    }
    if (answer != NO_ERROR) return std::nullopt;
    const auto& rows = *reinterpret_cast<const MIB_TCPTABLE_OWNER_PID*>(table.data());
    const std::span all(rows.table, rows.dwNumEntries);
    return std::ranges::any_of(all, [&](const MIB_TCPROW_OWNER_PID& row) {
        // Wine has 0 for every owner.
        const bool ours = row.dwOwningPid == ::GetCurrentProcessId() || row.dwOwningPid == 0;
        return ours && row.dwState == MIB_TCP_STATE_ESTAB && row.dwRemoteAddr == to.s_addr &&
               row.dwRemotePort == ::htons(port);
    });
}

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
