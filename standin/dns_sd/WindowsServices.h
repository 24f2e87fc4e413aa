/// The DNS-SD functions of Windows, which exist from Windows 10 on.
#pragma once

#if !defined(UNICODE)
#define UNICODE  // the records of a browse contain wide texts
#endif
#include <winsock2.h>
// After <winsock2.h>, because it would otherwise include the older <winsock.h>.
#include <windns.h>

/// The functions of dnsapi.dll that a browse uses; null if the system does not have them.
struct SWindowsServices {
    decltype(&::DnsServiceBrowse) browse;
    decltype(&::DnsServiceBrowseCancel) cancelBrowse;
    decltype(&::DnsServiceResolve) resolve;
    decltype(&::DnsServiceResolveCancel) cancelResolve;
    decltype(&::DnsServiceFreeInstance) freeInstance;
    decltype(&::DnsFree) freeRecords;

    [[nodiscard]] bool complete() const {
        return browse != nullptr && cancelBrowse != nullptr && resolve != nullptr &&
               cancelResolve != nullptr && freeInstance != nullptr && freeRecords != nullptr;
    }
};

/// Returns the system's functions. They are looked up at run time, so that the library also loads
/// on a system without them. A test replaces this function.
const SWindowsServices& WindowsServices();
