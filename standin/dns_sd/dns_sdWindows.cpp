// Stand-in for the DNS-SD library on Windows: one browse with the service discovery of the system.
//
// The system calls back on its own threads: possibly before the function that started the operation
// has returned, long after it was cancelled, or never. Therefore the context of a callback is a
// number and not a pointer. Everything that the system may still use, above all the cancel handle
// of an operation, is shared by the caller that started the operation and its last callback.
#include "dns_sd.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
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

#include "DnsServices.h"
#include "WideText.h"

namespace {

using platform::WindowsServices;

constexpr std::int32_t success = 0;
constexpr std::int32_t failure = -1;

/// Unit of the browse argument.
constexpr std::chrono::milliseconds browseUnit{10};
/// How long the end of a browse waits for the callbacks of cancelled operations.
constexpr std::chrono::milliseconds cancelLimit{1000};

/// One browse.
struct SBrowse {
    std::wstring ending;           ///< of the full name of an instance: a dot and the service type
    std::set<std::wstring> asked;  ///< full names of the instances that were resolved
    std::set<std::pair<std::uint32_t, std::string>> instances;  ///< address and name
    bool outOfMemory = false;
    bool ended = false;  ///< accepts no more results
};

/// An operation of the system: the browse itself, or the resolution of one instance.
struct SOperation {
    std::shared_ptr<SBrowse> browse;
    bool isBrowse;
    std::wstring name;  // the query; the system may read it as long as the operation runs
    DNS_SERVICE_CANCEL cancel{};
};

/// The running operations by number.
struct SRunning {
    std::mutex lock;  // also guards the contents of each browse
    std::condition_variable changed;
    std::map<std::uintptr_t, std::shared_ptr<SOperation>> operations;
    std::uintptr_t lastNumber = 0;
};

/// Never destroyed, because a callback may come while the process ends.
SRunning& Running() {
    static SRunning& running = *new SRunning;
    return running;
}

/// Adds a running operation and returns its number.
std::uintptr_t Enrol(const std::shared_ptr<SOperation>& operation) {
    SRunning& running = Running();
    const std::lock_guard<std::mutex> guard(running.lock);
    running.operations.emplace(++running.lastNumber, operation);
    return running.lastNumber;
}

/// Removes an operation after its last callback, or if it could not be started. Repeating it does
/// nothing.
void Finish(std::uintptr_t number) {
    SRunning& running = Running();
    std::shared_ptr<SOperation> last;  // destroyed without the lock
    {
        const std::lock_guard<std::mutex> guard(running.lock);
        const auto entry = running.operations.find(number);
        if (entry == running.operations.end()) return;
        last = std::move(entry->second);
        running.operations.erase(entry);
    }
    running.changed.notify_all();
}

/// Calls `use` with the browse of an operation, if that still accepts results.
template <class Use>
void WithBrowse(std::uintptr_t number, Use use) noexcept {
    SRunning& running = Running();
    const std::lock_guard<std::mutex> guard(running.lock);
    const auto entry = running.operations.find(number);
    if (entry == running.operations.end()) return;
    SBrowse& browse = *entry->second->browse;
    if (browse.ended) return;
    try {
        use(entry->second->browse);
    } catch (const std::bad_alloc&) {
        browse.outOfMemory = true;  // no exception may pass through the system's frames
    }
}

void AddInstance(SBrowse& browse, const DNS_SERVICE_INSTANCE& instance) {
    if (instance.ip4Address == nullptr || instance.pszInstanceName == nullptr) return;
    std::wstring_view name(instance.pszInstanceName);
    if (name.ends_with(browse.ending)) name.remove_suffix(browse.ending.size());
    browse.instances.emplace(*instance.ip4Address, platform::Narrow(name));
}

void WINAPI OnResolved(DWORD status, void* context, DNS_SERVICE_INSTANCE* instance) {
    const auto number = reinterpret_cast<std::uintptr_t>(context);
    if (status == ERROR_SUCCESS && instance != nullptr) {
        WithBrowse(number, [&](const auto& browse) { AddInstance(*browse, *instance); });
    }
    if (instance != nullptr) WindowsServices().freeInstance(instance);
    Finish(number);
}

void Resolve(const std::shared_ptr<SBrowse>& browse, const wchar_t* name) {
    // Keeps the operation alive: the system may call back before it returns and then still write to
    // the handle.
    const auto operation =
        std::make_shared<SOperation>(SOperation{browse, false, name, DNS_SERVICE_CANCEL{}});
    const std::uintptr_t number = Enrol(operation);
    DNS_SERVICE_RESOLVE_REQUEST request{};
    request.Version = platform::requestVersion;
    request.QueryName = operation->name.data();
    request.pResolveCompletionCallback = OnResolved;
    request.pQueryContext = reinterpret_cast<void*>(number);
    if (WindowsServices().resolve(&request, &operation->cancel) != platform::pendingRequest)
        Finish(number);
}

/// Returns the announced instances that have not been resolved yet.
std::vector<const wchar_t*> NewInstances(SBrowse& browse, const DNS_RECORDW* records) {
    std::vector<const wchar_t*> fresh;
    for (; records != nullptr; records = records->pNext) {
        // A record without a time to live announces that the instance goes away.
        if (records->wType != DNS_TYPE_PTR || records->dwTtl == 0) continue;
        const wchar_t* const name = records->Data.PTR.pNameHost;
        if (browse.asked.insert(name).second) fresh.push_back(name);
    }
    return fresh;
}

void WINAPI OnBrowsed(DWORD status, void* context, DNS_RECORDW* records) {
    const auto number = reinterpret_cast<std::uintptr_t>(context);
    std::vector<const wchar_t*> fresh;
    std::shared_ptr<SBrowse> browse;
    if (status == ERROR_SUCCESS) {
        WithBrowse(number, [&](const auto& found) {
            browse = found;
            fresh = NewInstances(*found, records);
        });
    }
    for (const wchar_t* const name : fresh) {
        // Without the lock: the system may call back at once.
        try {
            Resolve(browse, name);
        } catch (const std::bad_alloc&) {
            WithBrowse(number, [](const auto& found) { found->outOfMemory = true; });
        }
    }
    if (records != nullptr) WindowsServices().freeRecords(records, DnsFreeRecordList);
    if (status == ERROR_CANCELLED) Finish(number);  // the last callback of a browse
}

/// Returns the running operations of a browse, including the browse itself.
std::vector<std::shared_ptr<SOperation>> OperationsOf(const SBrowse& browse, bool browsing) {
    std::vector<std::shared_ptr<SOperation>> found;
    for (const auto& [number, operation] : Running().operations) {
        if (operation->browse.get() == &browse && operation->isBrowse == browsing) {
            found.push_back(operation);
        }
    }
    return found;
}

/// Cancels all operations of a browse and waits for their callbacks, for a limited time.
void Cancel(const SBrowse& browse) {
    SRunning& running = Running();
    // The browse first, so that nothing new is resolved while the resolutions are cancelled.
    for (const bool browsing : {true, false}) {
        std::unique_lock<std::mutex> guard(running.lock);
        const auto operations = OperationsOf(browse, browsing);
        guard.unlock();  // the system may call back within the cancellation
        for (const auto& operation : operations) {
            browsing ? WindowsServices().cancelBrowse(&operation->cancel)
                     : WindowsServices().cancelResolve(&operation->cancel);
        }
        guard.lock();
        running.changed.wait_for(guard, cancelLimit,
                                 [&] { return OperationsOf(browse, browsing).empty(); });
    }
}

/// Makes a browse ignore all later callbacks.
void End(SBrowse& browse) {
    const std::lock_guard<std::mutex> guard(Running().lock);
    browse.ended = true;
}

/// Fills `browse` until the time is up. Returns false if the browse cannot run.
bool RunBrowse(const std::shared_ptr<SBrowse>& browse, const std::wstring& serviceType,
               std::chrono::milliseconds time) {
    const auto operation =
        std::make_shared<SOperation>(SOperation{browse, true, serviceType, DNS_SERVICE_CANCEL{}});
    const std::uintptr_t number = Enrol(operation);
    DNS_SERVICE_BROWSE_REQUEST request{};
    request.Version = platform::requestVersion;
    request.QueryName = operation->name.c_str();
    request.pBrowseCallback = OnBrowsed;
    request.pQueryContext = reinterpret_cast<void*>(number);
    const bool started =
        WindowsServices().browse(&request, &operation->cancel) == platform::pendingRequest;
    if (started) {
        std::this_thread::sleep_for(time);
    } else {
        Finish(number);
    }
    Cancel(*browse);
    return started;
}

bool SystemHasBrowse() {
    if (WindowsServices().canBrowse()) return true;
    static std::atomic<bool> reported{false};
    if (!reported.exchange(true)) {
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
    std::shared_ptr<SBrowse> browse;
    try {
        browse = std::make_shared<SBrowse>();
        std::string_view type(serviceType);
        if (type.ends_with('.')) type.remove_suffix(1);
        const std::wstring wideType(type.begin(), type.end());  // service types are ASCII
        browse->ending = L"." + wideType;
        const bool run = RunBrowse(browse, wideType, browseArgument * browseUnit);
        End(*browse);
        if (!run) return failure;
    } catch (const std::bad_alloc&) {
        if (browse != nullptr) End(*browse);
        return failure;
    }
    // Called when nothing is added any more, because the callback may do anything, even browse
    // again.
    for (const auto& [address, name] : browse->instances) callback(address, name.c_str(), context);
    return browse->outOfMemory ? failure : success;
}
