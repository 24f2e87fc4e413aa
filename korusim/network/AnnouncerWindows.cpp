#include "Announcer.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <utility>

#include "DnsServices.h"
#include "Socket.h"
#include "WideText.h"

// After the other headers, because it needs those of the sockets.
#include <iphlpapi.h>

namespace korusim {
namespace {

using platform::WindowsServices;

constexpr wchar_t endOfName[] = L"._koru-ircam._tcp.local";
constexpr WORD servicePort = 554;
/// Time limit for announcing all cameras, and for withdrawing the announcements. Each takes one or
/// two seconds.
constexpr std::chrono::seconds announceLimit{15};
constexpr std::chrono::seconds withdrawLimit{3};

/// Returns a host name such as "koru-127-0-0-11.local".
std::wstring HostNameOf(std::string address) {
    std::ranges::replace(address, '.', '-');
    return platform::Widen("koru-" + address + ".local");
}

/// Returns the interface whose network contains an address, so that the address of a loopback is
/// not announced to other machines.
ULONG InterfaceOf(IP4_ADDRESS address) {
    DWORD found = 0;
    return ::GetBestInterface(address, &found) == NO_ERROR ? found : 0;
}

}  // namespace

/// The system calls back on its own threads, possibly before the function that started the
/// operation has returned.
struct CAnnouncer::SState {
    /// What the system may read as long as the service is registered.
    struct SEntry {
        SEntry(SState& state, const SAnnouncement& camera);
        SEntry(const SEntry&) = delete;
        SEntry& operator=(const SEntry&) = delete;

        SState* owner;
        std::wstring name;
        std::wstring host;
        IP4_ADDRESS address;
        DNS_SERVICE_INSTANCE instance{};
        DNS_SERVICE_REGISTER_REQUEST request{};
        bool registered = false;
    };

    std::deque<SEntry> entries;
    std::mutex lock;  // guards the following, and whether an entry is registered
    std::condition_variable changed;
    std::size_t running = 0;  // operations of the system
    DWORD failure = ERROR_SUCCESS;

    template <class Function>
    void Run(Function function, SEntry& entry);
    void OnEnd(SEntry& entry, DWORD status);
    /// Waits for the operations. Returns false if they take longer than the limit.
    [[nodiscard]] bool WaitFor(std::chrono::seconds limit);
};

namespace {

void WINAPI OnOperationEnd(DWORD status, void* context, DNS_SERVICE_INSTANCE* instance) {
    if (instance != nullptr) WindowsServices().freeInstance(instance);
    auto* const entry = static_cast<CAnnouncer::SState::SEntry*>(context);
    entry->owner->OnEnd(*entry, status);
}

void PrintNotAnnounced(const std::string& reason) {
    std::fprintf(stderr,
                 "korusim: the cameras are not announced and are reachable only by their "
                 "addresses: %s\n",
                 reason.c_str());
}

}  // namespace

CAnnouncer::SState::SEntry::SEntry(SState& state, const SAnnouncement& camera)
    : owner(&state),
      name(platform::Widen(camera.name) + endOfName),
      host(HostNameOf(camera.address)),
      address(platform::ParseIpv4(camera.address.c_str()).value_or(0)) {
    instance.pszInstanceName = name.data();
    instance.pszHostName = host.data();
    instance.ip4Address = &address;
    instance.wPort = servicePort;
    instance.dwInterfaceIndex = InterfaceOf(address);
    request.Version = platform::requestVersion;
    request.InterfaceIndex = instance.dwInterfaceIndex;
    request.pServiceInstance = &instance;
    request.pRegisterCompletionCallback = OnOperationEnd;
    request.pQueryContext = this;
}

template <class Function>
void CAnnouncer::SState::Run(Function function, SEntry& entry) {
    {
        const std::lock_guard<std::mutex> guard(lock);
        ++running;
    }
    const DWORD status = function(&entry.request, nullptr);
    if (status != static_cast<DWORD>(platform::pendingRequest)) OnEnd(entry, status);
}

void CAnnouncer::SState::OnEnd(SEntry& entry, DWORD status) {
    const std::lock_guard<std::mutex> guard(lock);
    entry.registered = status == ERROR_SUCCESS;
    if (status != ERROR_SUCCESS) failure = status;
    --running;
    changed.notify_all();
}

bool CAnnouncer::SState::WaitFor(std::chrono::seconds limit) {
    std::unique_lock<std::mutex> guard(lock);
    return changed.wait_for(guard, limit, [this] { return running == 0; });
}

CAnnouncer::CAnnouncer() : state(std::make_unique<SState>()) {}

CAnnouncer::~CAnnouncer() {
    for (SState::SEntry& entry : state->entries) {
        std::unique_lock<std::mutex> guard(state->lock);
        const bool registered = entry.registered;
        guard.unlock();
        if (registered) state->Run(WindowsServices().withdraw, entry);
    }
    // A callback that comes later still uses the state.
    if (!state->WaitFor(withdrawLimit)) (void)state.release();
}

std::string CAnnouncer::Announce(const std::vector<SAnnouncement>& cameras) {
    if (!WindowsServices().canRegister()) {
        PrintNotAnnounced("this system has no DNS-SD (dnsapi.dll has it from Windows 10 on)");
        return {};
    }
    for (const SAnnouncement& camera : cameras) {
        state->Run(WindowsServices().enrol, state->entries.emplace_back(*state, camera));
    }
    const bool ended = state->WaitFor(announceLimit);
    const std::lock_guard<std::mutex> guard(state->lock);
    if (!ended) {
        PrintNotAnnounced("the system takes too long");
    } else if (state->failure != ERROR_SUCCESS) {
        PrintNotAnnounced(platform::SystemErrorText(state->failure));
    }
    return {};
}

}  // namespace korusim
