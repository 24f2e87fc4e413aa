#include "Announcer.h"

#include <arpa/inet.h>
#include <avahi-common/address.h>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/thread-watch.h>
#include <avahi-core/core.h>
#include <avahi-core/log.h>
#include <avahi-core/publish.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <list>
#include <mutex>

namespace korusim {
namespace {

constexpr const char* serviceType = "_koru-ircam._tcp";
constexpr std::uint16_t servicePort = 554;
/// Time limit for probing and announcing, which take one or two seconds.
constexpr std::chrono::seconds announceLimit{15};
/// For half a second after an announcement Avahi does not answer a query for the same records. A
/// client that browses for only one second must get its answer at once.
constexpr std::chrono::milliseconds settleTime{600};

std::uint32_t ParseAddress(const std::string& text) {
    in_addr address{};
    ::inet_pton(AF_INET, text.c_str(), &address);
    return address.s_addr;
}

std::uint32_t Ipv4Of(const sockaddr* address) {
    return reinterpret_cast<const sockaddr_in*>(reinterpret_cast<const void*>(address))
        ->sin_addr.s_addr;
}

/// Returns the interface whose network contains an address. For 127.0.0.11 that is the loopback,
/// although its own address is 127.0.0.1.
AvahiIfIndex InterfaceOf(const std::string& text) {
    const std::uint32_t address = ParseAddress(text);
    ifaddrs* all = nullptr;
    if (::getifaddrs(&all) != 0) return AVAHI_IF_UNSPEC;
    AvahiIfIndex found = AVAHI_IF_UNSPEC;
    for (const ifaddrs* each = all; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr == nullptr || each->ifa_netmask == nullptr) continue;
        if (each->ifa_addr->sa_family != AF_INET) continue;
        const std::uint32_t mask = Ipv4Of(each->ifa_netmask);
        if ((address & mask) != (Ipv4Of(each->ifa_addr) & mask)) continue;
        found = static_cast<AvahiIfIndex>(::if_nametoindex(each->ifa_name));
        break;
    }
    ::freeifaddrs(all);
    return found;
}

/// Returns a host name such as "koru-127-0-0-11.local".
std::string HostNameOf(std::string address) {
    std::ranges::replace(address, '.', '-');
    return "koru-" + address + ".local";
}

extern "C" {
static void KeepQuiet(AvahiLogLevel, const char*) {}
static void OnServerState(AvahiServer*, AvahiServerState, void*) {}
}  // extern "C"

}  // namespace

/// Avahi's thread starts when all cameras are registered; from then on only that thread uses the
/// entries. `lock` guards the state that `Announce` waits for.
struct CAnnouncer::SState {
    struct SEntry {
        SState* owner;
        SAnnouncement camera;
        AvahiSEntryGroup* group = nullptr;
        bool established = false;  // counted
    };

    AvahiThreadedPoll* poll = nullptr;
    AvahiServer* server = nullptr;
    bool running = false;  // Avahi's thread
    std::list<SEntry> entries;

    std::mutex lock;
    std::condition_variable changed;
    std::size_t established = 0;
    std::string error;

    ~SState();
    [[nodiscard]] bool MakeServer();
    void Register(SEntry& entry);
    void OnGroup(SEntry& entry, AvahiEntryGroupState groupState);

   private:
    [[nodiscard]] int AddRecords(const SEntry& entry) const;
    static void Rename(SEntry& entry);
    void Fail(const SEntry& entry, int code);
};

namespace {

extern "C" {
static void OnGroupState(AvahiServer*, AvahiSEntryGroup*, AvahiEntryGroupState groupState,
                         void* context) {
    auto* const entry = static_cast<CAnnouncer::SState::SEntry*>(context);
    entry->owner->OnGroup(*entry, groupState);
}
}  // extern "C"

}  // namespace

CAnnouncer::SState::~SState() {
    if (running) avahi_threaded_poll_stop(poll);
    if (server != nullptr) avahi_server_free(server);  // sends the goodbyes
    if (poll != nullptr) avahi_threaded_poll_free(poll);
}

bool CAnnouncer::SState::MakeServer() {
    avahi_set_log_function(KeepQuiet);
    poll = avahi_threaded_poll_new();
    if (poll == nullptr) {
        error = "multicast DNS: no event loop: too few file descriptors or too little memory";
        return false;
    }
    AvahiServerConfig config;
    avahi_server_config_init(&config);
    config.host_name = avahi_strdup("korusim");  // not published, but must be valid
    config.use_ipv6 = 0;
    config.publish_hinfo = 0;
    config.publish_addresses = 0;
    config.publish_workstation = 0;
    config.publish_domain = 0;
    config.enable_wide_area = 0;
    int code = 0;
    server =
        avahi_server_new(avahi_threaded_poll_get(poll), &config, OnServerState, nullptr, &code);
    avahi_server_config_free(&config);
    if (server == nullptr) error = std::string("multicast DNS: ") + avahi_strerror(code);
    return server != nullptr;
}

int CAnnouncer::SState::AddRecords(const SEntry& entry) const {
    const AvahiIfIndex interface = InterfaceOf(entry.camera.address);
    const std::string host = HostNameOf(entry.camera.address);
    AvahiAddress address{};
    address.proto = AVAHI_PROTO_INET;
    address.data.ipv4.address = ParseAddress(entry.camera.address);
    // No reverse record: every machine has the same loopback addresses.
    const int added = avahi_server_add_address(server, entry.group, interface, AVAHI_PROTO_INET,
                                               AVAHI_PUBLISH_NO_REVERSE, host.c_str(), &address);
    if (added < 0) return added;
    return avahi_server_add_service(server, entry.group, interface, AVAHI_PROTO_INET,
                                    static_cast<AvahiPublishFlags>(0), entry.camera.name.c_str(),
                                    serviceType, nullptr, host.c_str(), servicePort, nullptr);
}

void CAnnouncer::SState::Rename(SEntry& entry) {
    char* const other = avahi_alternative_service_name(entry.camera.name.c_str());
    std::fprintf(stderr, "korusim: camera %s: the name \"%s\" is taken, announced as \"%s\"\n",
                 entry.camera.address.c_str(), entry.camera.name.c_str(), other);
    entry.camera.name = other;
    avahi_free(other);
}

void CAnnouncer::SState::Register(SEntry& entry) {
    if (entry.group == nullptr) entry.group = avahi_s_entry_group_new(server, OnGroupState, &entry);
    int code = entry.group != nullptr ? AddRecords(entry) : avahi_server_errno(server);
    while (code == AVAHI_ERR_COLLISION) {
        Rename(entry);
        avahi_s_entry_group_reset(entry.group);
        code = AddRecords(entry);
    }
    if (code >= 0) code = avahi_s_entry_group_commit(entry.group);
    if (code < 0) Fail(entry, code);
}

void CAnnouncer::SState::OnGroup(SEntry& entry, AvahiEntryGroupState groupState) {
    if (groupState == AVAHI_ENTRY_GROUP_COLLISION) {
        // Another host on the network uses the name.
        Rename(entry);
        avahi_s_entry_group_reset(entry.group);
        Register(entry);
    } else if (groupState == AVAHI_ENTRY_GROUP_FAILURE) {
        Fail(entry, avahi_server_errno(server));
    } else if (groupState == AVAHI_ENTRY_GROUP_ESTABLISHED && !entry.established) {
        entry.established = true;
        const std::lock_guard<std::mutex> guard(lock);
        ++established;
        changed.notify_all();
    }
}

void CAnnouncer::SState::Fail(const SEntry& entry, int code) {
    const std::lock_guard<std::mutex> guard(lock);
    error = "camera " + entry.camera.address + " cannot be announced as \"" + entry.camera.name +
            "\": " + avahi_strerror(code);
    changed.notify_all();
}

CAnnouncer::CAnnouncer() : state(std::make_unique<SState>()) {}
CAnnouncer::~CAnnouncer() = default;

std::string CAnnouncer::Announce(const std::vector<SAnnouncement>& cameras) {
    if (!state->MakeServer()) return state->error;
    for (const SAnnouncement& camera : cameras) {
        state->Register(state->entries.emplace_back(SState::SEntry{state.get(), camera}));
    }
    state->running = avahi_threaded_poll_start(state->poll) == 0;
    if (!state->running) return "multicast DNS: the thread could not be started";
    std::unique_lock<std::mutex> guard(state->lock);
    const bool settled = state->changed.wait_for(guard, announceLimit, [&] {
        return state->established == cameras.size() || !state->error.empty();
    });
    if (!settled) return "multicast DNS: the announcement takes too long";
    state->changed.wait_for(guard, settleTime, [&] { return !state->error.empty(); });
    return state->error;
}

}  // namespace korusim
