/// The DNS-SD functions of Windows, which exist from Windows 10 on. The plug-in does not use them.
#pragma once

#if !defined(UNICODE)
#define UNICODE  // the records of a browse contain wide texts
#endif
#include <winsock2.h>
// After <winsock2.h>, because it would otherwise include the older <winsock.h>.
#include <windns.h>

namespace platform {

/// The functions of dnsapi.dll for a browse and a registration; null if the system does not have
/// them.
struct SWindowsServices {
    decltype(&::DnsServiceBrowse) browse;
    decltype(&::DnsServiceBrowseCancel) cancelBrowse;
    decltype(&::DnsServiceResolve) resolve;
    decltype(&::DnsServiceResolveCancel) cancelResolve;
    decltype(&::DnsServiceFreeInstance) freeInstance;
    decltype(&::DnsFree) freeRecords;
    decltype(&::DnsServiceRegister) enrol;
    decltype(&::DnsServiceDeRegister) withdraw;

    [[nodiscard]] bool canBrowse() const {
        return browse != nullptr && cancelBrowse != nullptr && resolve != nullptr &&
               cancelResolve != nullptr && freeInstance != nullptr && freeRecords != nullptr;
    }
    [[nodiscard]] bool canRegister() const {
        return enrol != nullptr && withdraw != nullptr && freeInstance != nullptr;
    }
};

/// Returned by a function that has started an operation (DNS_REQUEST_PENDING).
inline constexpr DNS_STATUS pendingRequest = 9506;
inline constexpr ULONG requestVersion = 1;

/// Returns the system's functions. They are looked up at run time, so that a program also starts on
/// a system without them. A test replaces this function.
const SWindowsServices& WindowsServices();

}  // namespace platform
