#include "DnsServices.h"

namespace platform {
namespace {

template <class Function>
void Find(HMODULE library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
}

}  // namespace

const SWindowsServices& WindowsServices() {
    static const SWindowsServices services = [] {
        SWindowsServices found{};
        const HMODULE library =
            ::LoadLibraryExW(L"dnsapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
        if (library == nullptr) return found;
        Find(library, "DnsServiceBrowse", found.browse);
        Find(library, "DnsServiceBrowseCancel", found.cancelBrowse);
        Find(library, "DnsServiceResolve", found.resolve);
        Find(library, "DnsServiceResolveCancel", found.cancelResolve);
        Find(library, "DnsServiceFreeInstance", found.freeInstance);
        Find(library, "DnsFree", found.freeRecords);
        Find(library, "DnsServiceRegister", found.enrol);
        Find(library, "DnsServiceDeRegister", found.withdraw);
        return found;
    }();
    return services;
}

}  // namespace platform
