// Stand-in for the DNS-SD library on Windows: one browse with the system's own service discovery.
// It is looked up at run time, so that this library also loads on a system without it.
#include "dns_sd.h"

#define UNICODE
#include <winsock2.h>
// After <winsock2.h>, which it would otherwise replace by the older one.
#include <windns.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr std::int32_t success = 0;
constexpr std::int32_t failure = -1;

/// Unit of the browse argument.
constexpr std::chrono::milliseconds browseUnit{10};
constexpr ULONG requestVersion = 1;
/// What both questions answer when all is well (DNS_REQUEST_PENDING).
constexpr DNS_STATUS pending = 9506;

/// What dnsapi.dll has on Windows 10 and later.
struct SSystem {
    decltype(&::DnsServiceBrowse) browse;
    decltype(&::DnsServiceBrowseCancel) cancelBrowse;
    decltype(&::DnsServiceResolve) resolve;
    decltype(&::DnsServiceFreeInstance) freeInstance;
    decltype(&::DnsFree) freeRecords;

    bool complete() const {
        return browse != nullptr && cancelBrowse != nullptr && resolve != nullptr &&
               freeInstance != nullptr && freeRecords != nullptr;
    }
};

template <class Function>
void Find(HMODULE library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
}

const SSystem& System() {
    static const SSystem system = [] {
        SSystem found{};
        const HMODULE library =
            ::LoadLibraryExW(L"dnsapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
        if (library == nullptr) return found;
        Find(library, "DnsServiceBrowse", found.browse);
        Find(library, "DnsServiceBrowseCancel", found.cancelBrowse);
        Find(library, "DnsServiceResolve", found.resolve);
        Find(library, "DnsServiceFreeInstance", found.freeInstance);
        Find(library, "DnsFree", found.freeRecords);
        return found;
    }();
    return system;
}

/// What one browse has found. The system's callbacks fill it, on threads of the system.
struct SBrowse {
    std::wstring ending;           ///< of an instance's whole name: a dot and the service type
    std::set<std::wstring> asked;  ///< whole names of the instances that were seen
    std::set<std::pair<std::uint32_t, std::string>> instances;  ///< address and name
    bool outOfMemory = false;
};

/// The browses that run, by number. A callback brings the number of its browse: one that comes late
/// finds nothing, where a pointer would point to nothing.
struct SRunning {
    std::mutex lock;  // also guards each browse's contents
    std::map<std::uintptr_t, SBrowse*> browses;
    std::uintptr_t lastNumber = 0;
};

SRunning& Running() {
    static SRunning running;
    return running;
}

/// Calls `use` with the browse of a number, if it still runs.
template <class Use>
void WithBrowse(std::uintptr_t number, Use use) noexcept {
    SRunning& running = Running();
    const std::lock_guard<std::mutex> guard(running.lock);
    const auto entry = running.browses.find(number);
    if (entry == running.browses.end()) return;
    try {
        use(*entry->second);
    } catch (const std::bad_alloc&) {
        entry->second->outOfMemory = true;  // no exception may pass through the system's frames
    }
}

std::string Utf8(std::wstring_view text) {
    const auto convert = [text](char* to, int room) {
        return ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), to,
                                     room, nullptr, nullptr);
    };
    std::string converted(static_cast<std::size_t>(convert(nullptr, 0)), '\0');
    convert(converted.data(), static_cast<int>(converted.size()));
    return converted;
}

/// One question for an instance's address. It belongs to the system until `OnResolved`.
struct SResolve {
    std::uintptr_t browse;
    std::wstring name;
    DNS_SERVICE_CANCEL cancel;
};

void AddInstance(SBrowse& browse, const DNS_SERVICE_INSTANCE& instance) {
    if (instance.ip4Address == nullptr || instance.pszInstanceName == nullptr) return;
    std::wstring_view name(instance.pszInstanceName);
    if (name.ends_with(browse.ending)) name.remove_suffix(browse.ending.size());
    browse.instances.emplace(*instance.ip4Address, Utf8(name));
}

void WINAPI OnResolved(DWORD status, void* context, DNS_SERVICE_INSTANCE* instance) {
    const std::unique_ptr<SResolve> question(static_cast<SResolve*>(context));
    if (instance == nullptr) return;
    if (status == ERROR_SUCCESS) {
        WithBrowse(question->browse, [&](SBrowse& browse) { AddInstance(browse, *instance); });
    }
    System().freeInstance(instance);
}

void Resolve(std::uintptr_t number, const wchar_t* name) {
    auto question = std::make_unique<SResolve>(SResolve{number, name, {}});
    DNS_SERVICE_RESOLVE_REQUEST request{};
    request.Version = requestVersion;
    request.QueryName = question->name.data();
    request.pResolveCompletionCallback = OnResolved;
    request.pQueryContext = question.get();
    if (System().resolve(&request, &question->cancel) == pending) question.release();
}

/// Takes in what was seen; the instances that nobody has asked for yet.
std::vector<const wchar_t*> NewInstances(SBrowse& browse, const DNS_RECORDW* records) {
    std::vector<const wchar_t*> fresh;
    for (; records != nullptr; records = records->pNext) {
        // A record without time to live says that the instance is going.
        if (records->wType != DNS_TYPE_PTR || records->dwTtl == 0) continue;
        const wchar_t* const name = records->Data.PTR.pNameHost;
        if (browse.asked.insert(name).second) fresh.push_back(name);
    }
    return fresh;
}

void WINAPI OnBrowsed(DWORD status, void* context, DNS_RECORDW* records) {
    const auto number = reinterpret_cast<std::uintptr_t>(context);
    std::vector<const wchar_t*> fresh;
    if (status == ERROR_SUCCESS) {
        WithBrowse(number, [&](SBrowse& browse) { fresh = NewInstances(browse, records); });
    }
    for (const wchar_t* const name : fresh) {
        // With no lock held: the system may call back at once.
        try {
            Resolve(number, name);
        } catch (const std::bad_alloc&) {
            WithBrowse(number, [](SBrowse& browse) { browse.outOfMemory = true; });
        }
    }
    if (records != nullptr) System().freeRecords(records, DnsFreeRecordList);
}

/// A browse among those that run, from construction to destruction.
class CEnrolled {
   public:
    explicit CEnrolled(SBrowse& browse) {
        SRunning& running = Running();
        const std::lock_guard<std::mutex> guard(running.lock);
        id = ++running.lastNumber;
        running.browses.emplace(id, &browse);
    }
    CEnrolled(const CEnrolled&) = delete;
    CEnrolled& operator=(const CEnrolled&) = delete;
    ~CEnrolled() {
        SRunning& running = Running();
        const std::lock_guard<std::mutex> guard(running.lock);
        running.browses.erase(id);
    }
    std::uintptr_t number() const { return id; }

   private:
    std::uintptr_t id;
};

/// Fills `browse` until the time is up; false when the browse couldn't run.
bool RunBrowse(SBrowse& browse, const std::wstring& serviceType, std::chrono::milliseconds time) {
    const CEnrolled enrolled(browse);
    DNS_SERVICE_BROWSE_REQUEST request{};
    request.Version = requestVersion;
    request.QueryName = serviceType.c_str();
    request.pBrowseCallback = OnBrowsed;
    request.pQueryContext = reinterpret_cast<void*>(enrolled.number());
    DNS_SERVICE_CANCEL cancel{};
    if (System().browse(&request, &cancel) != pending) return false;
    std::this_thread::sleep_for(time);
    System().cancelBrowse(&cancel);
    return true;
}

bool SystemHasBrowse() {
    if (System().complete()) return true;
    static std::atomic<bool> told{false};
    if (!told.exchange(true)) {
        std::fputs(
            "dns_sd: this system has no DNS-SD browse (dnsapi.dll has one from Windows 10 on): no "
            "camera will be found; a camera can still be opened by its address\n",
            stderr);
    }
    return false;
}

}  // namespace

std::int32_t dns_sd(const char* serviceType, DnsSdCallback callback, void* context,
                    std::int32_t browseArgument) {
    if (serviceType == nullptr || callback == nullptr || browseArgument < 0) return failure;
    if (!SystemHasBrowse()) return failure;
    SBrowse browse;
    try {
        std::string_view type(serviceType);
        if (type.ends_with('.')) type.remove_suffix(1);
        const std::wstring wideType(type.begin(), type.end());  // service types are ASCII
        browse.ending = L"." + wideType;
        if (!RunBrowse(browse, wideType, browseArgument * browseUnit)) return failure;
    } catch (const std::bad_alloc&) {
        return failure;
    }
    // Only now, with nobody left to add to them: the callback may do as it likes, even browse
    // again.
    for (const auto& [address, name] : browse.instances) callback(address, name.c_str(), context);
    return browse.outOfMemory ? failure : success;
}
