// The DNS-SD browse of Windows with a double of the system's functions. Its callbacks come before
// the starting call has returned, on other threads, after a cancellation, after the browse, or
// never.
#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "DnsServices.h"
#include "dns_sd.h"

namespace {

constexpr DNS_STATUS pending = 9506;
constexpr wchar_t type[] = L"._koru-ircam._tcp.local";

/// An operation as the system stores it: the callback, and the handle that its owner keeps alive.
struct SOperation {
    DNS_SERVICE_RESOLVE_REQUEST request;
    PDNS_SERVICE_CANCEL cancel;
};

struct SSystem {
    std::mutex lock;
    DNS_SERVICE_BROWSE_REQUEST browse{};
    PDNS_SERVICE_CANCEL browseCancel = nullptr;
    std::map<std::wstring, SOperation> resolves;  // that have not ended
    std::vector<std::wstring> names;              // of the announced instances
    std::deque<std::thread> threads;              // the browse, then the answers
    bool cancelsBrowse = true;
    int instances = 0;  // that were passed on and not freed
    int records = 0;
    int asked = 0;
};
SSystem* fake = nullptr;

/// Marks a handle. The mark must exist until the system uses the handle for the last time.
void Mark(PDNS_SERVICE_CANCEL cancel) { cancel->reserved = cancel; }
void ExpectMarked(PDNS_SERVICE_CANCEL cancel) { EXPECT_EQ(cancel->reserved, cancel); }

void Answer(const SOperation& operation, DWORD status) {
    ExpectMarked(operation.cancel);
    DNS_SERVICE_INSTANCE* instance = nullptr;
    if (status == ERROR_SUCCESS) {
        const std::wstring name = operation.request.QueryName;
        instance = new DNS_SERVICE_INSTANCE{};
        instance->pszInstanceName = new wchar_t[name.size() + 1];
        std::copy_n(name.c_str(), name.size() + 1, instance->pszInstanceName);
        instance->ip4Address = new IP4_ADDRESS(static_cast<DWORD>(name[0]));
        ++fake->instances;
    }
    operation.request.pResolveCompletionCallback(status, operation.request.pQueryContext, instance);
}

/// Removes and returns an operation that has not ended, if there is one.
std::vector<SOperation> Take(const std::wstring& name) {
    const std::lock_guard<std::mutex> guard(fake->lock);
    const auto found = fake->resolves.find(name);
    if (found == fake->resolves.end()) return {};
    const SOperation operation = found->second;
    fake->resolves.erase(found);
    return {operation};
}

DNS_STATUS WINAPI Browse(PDNS_SERVICE_BROWSE_REQUEST request, PDNS_SERVICE_CANCEL cancel) {
    Mark(cancel);
    fake->browse = *request;
    fake->browseCancel = cancel;
    if (fake->names.empty()) return ERROR_NOT_SUPPORTED;
    fake->threads.emplace_back([] {
        std::vector<DNS_RECORDW> list(fake->names.size());
        for (std::size_t i = 0; i < list.size(); ++i) {
            list[i].pNext = i + 1 < list.size() ? &list[i + 1] : nullptr;
            list[i].wType = DNS_TYPE_PTR;
            list[i].dwTtl = fake->names[i][0] == L'g' ? 0 : 120;
            list[i].Data.PTR.pNameHost = fake->names[i].data();
        }
        for (int twice = 0; twice < 2; ++twice) {
            ++fake->records;
            fake->browse.pBrowseCallback(ERROR_SUCCESS, fake->browse.pQueryContext, list.data());
        }
    });
    return pending;
}
DNS_STATUS WINAPI CancelBrowse(PDNS_SERVICE_CANCEL cancel) {
    EXPECT_EQ(cancel, fake->browseCancel);
    ExpectMarked(cancel);
    // The browse lasts until all timely results have arrived, even on a slow machine.
    for (std::thread& thread : fake->threads) thread.join();
    if (fake->cancelsBrowse) {
        fake->browse.pBrowseCallback(ERROR_CANCELLED, fake->browse.pQueryContext, nullptr);
    }
    return ERROR_SUCCESS;
}
/// The first letter of the name determines when the result comes.
DNS_STATUS WINAPI Resolve(PDNS_SERVICE_RESOLVE_REQUEST request, PDNS_SERVICE_CANCEL cancel) {
    Mark(cancel);
    const SOperation operation{*request, cancel};
    const std::wstring name = request->QueryName;
    if (name[0] == L'r') return ERROR_NOT_SUPPORTED;
    ++fake->asked;
    if (name[0] == L'e' || name[0] == L'g') {
        Answer(operation, ERROR_SUCCESS);
        Mark(cancel);  // the call has not returned yet
        return pending;
    }
    {
        const std::lock_guard<std::mutex> guard(fake->lock);
        fake->resolves.emplace(name, operation);
        if (name[0] != L't') return pending;
    }
    fake->threads.emplace_back([name] {
        for (const SOperation& each : Take(name)) Answer(each, ERROR_SUCCESS);
    });
    return pending;
}
DNS_STATUS WINAPI CancelResolve(PDNS_SERVICE_CANCEL cancel) {
    ExpectMarked(cancel);
    std::wstring name;
    {
        const std::lock_guard<std::mutex> guard(fake->lock);
        for (const auto& [each, operation] : fake->resolves) {
            if (operation.cancel == cancel) name = each;
        }
    }
    EXPECT_FALSE(name.empty()) << "this one does not run";
    if (name[0] == L'l') return ERROR_SUCCESS;  // its callback comes later
    for (const SOperation& operation : Take(name)) Answer(operation, ERROR_CANCELLED);
    return ERROR_SUCCESS;
}
void WINAPI FreeInstance(PDNS_SERVICE_INSTANCE instance) {
    --fake->instances;
    delete[] instance->pszInstanceName;
    delete instance->ip4Address;
    delete instance;
}
void WINAPI FreeRecords(PVOID, DNS_FREE_TYPE) { --fake->records; }

std::string BrowseOnce(SSystem& system) {
    fake = &system;
    std::string found;
    const auto result = dns_sd(
        "_koru-ircam._tcp.local",
        [](std::uint32_t address, const char* name, void* list) {
            *static_cast<std::string*>(list) += name + std::to_string(address) + " ";
        },
        &found, 1);
    EXPECT_EQ(result == 0, !system.names.empty());
    EXPECT_EQ(system.records, 0);
    return found;
}

/// Overwrites freed memory, so that a mark in it is lost.
void Churn() {
    std::vector<std::unique_ptr<std::string>> memory;
    for (std::size_t size = 8; size < 4096; ++size) {
        memory.push_back(std::make_unique<std::string>(size, '!'));
    }
}

TEST(WindowsBrowse, FindsWhatIsAnsweredInTimeAndSurvivesTheRest) {
    SSystem system;
    for (const wchar_t* const name :
         {L"early", L"thread", L"missing", L"late", L"refused", L"gone"}) {
        system.names.push_back(name + std::wstring(type));
    }
    EXPECT_EQ(BrowseOnce(system), "early101 thread116 ");
    EXPECT_EQ(system.instances, 0);
    ASSERT_EQ(system.resolves.size(), 1u) << "the late one; the others were cancelled";
    Churn();
    const SOperation late = system.resolves.begin()->second;
    Answer(late, ERROR_SUCCESS);
    EXPECT_EQ(system.instances, 0) << "its result is freed and ignored";
    late.request.pResolveCompletionCallback(ERROR_CANCELLED, late.request.pQueryContext, nullptr);
}

TEST(WindowsBrowse, SurvivesABrowseWhoseCancellationComesLate) {
    SSystem system;
    system.names = {std::wstring(L"early") + type};
    system.cancelsBrowse = false;
    EXPECT_EQ(BrowseOnce(system), "early101 ");
    Churn();
    ExpectMarked(system.browseCancel);
    std::wstring name = std::wstring(L"early2") + type;
    DNS_RECORDW record{};
    record.wType = DNS_TYPE_PTR;
    record.dwTtl = 120;
    record.Data.PTR.pNameHost = name.data();
    ++system.records;
    system.browse.pBrowseCallback(ERROR_SUCCESS, system.browse.pQueryContext, &record);
    EXPECT_EQ(system.records, 0);
    EXPECT_EQ(system.asked, 1) << "nothing is resolved after the browse";
    system.browse.pBrowseCallback(ERROR_CANCELLED, system.browse.pQueryContext, nullptr);
}

TEST(WindowsBrowse, FailsWhereTheSystemRefuses) {
    SSystem system;
    EXPECT_EQ(BrowseOnce(system), "");
}

}  // namespace

const platform::SWindowsServices& platform::WindowsServices() {
    static const SWindowsServices services = {Browse,       CancelBrowse, Resolve, CancelResolve,
                                              FreeInstance, FreeRecords,  nullptr, nullptr};
    return services;
}
