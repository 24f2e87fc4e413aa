#include <winsock2.h>
// After <winsock2.h>, because it would otherwise include the older <winsock.h>.
#include <iphlpapi.h>
#include <windows.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "NetworkState.h"

namespace platform {

bool StartSockets() noexcept {
    WSADATA about;
    return ::WSAStartup(MAKEWORD(2, 2), &about) == 0;  // until the process ends
}

// On this system only memory limits handles, and a system service does the browsing.
void RaiseDescriptorLimit() noexcept {}
std::string DescriptorObstacle(std::size_t) { return {}; }
std::string MulticastDnsObstacle(std::size_t) { return {}; }

std::optional<bool> IsConnectedTo(const std::string& address, std::uint16_t port) {
    in_addr to{};
    if (::inet_pton(AF_INET, address.c_str(), &to) != 1) return std::nullopt;
    // The table may grow between the call for its size and the call for its contents.
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
        // Wine reports the owner 0 for all of them.
        const bool ours = row.dwOwningPid == ::GetCurrentProcessId() || row.dwOwningPid == 0;
        return ours && row.dwState == MIB_TCP_STATE_ESTAB && row.dwRemoteAddr == to.s_addr &&
               row.dwRemotePort == ::htons(port);
    });
}

}  // namespace platform
