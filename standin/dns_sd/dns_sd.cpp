// Stand-in for the DNS-SD library: one browse by multicast DNS with Avahi's embeddable core,
// without a daemon. Each call creates its own listeners, which publish nothing, so that calls from
// several threads are independent.
#include "dns_sd.h"

#include <avahi-common/address.h>
#include <avahi-common/domain.h>
#include <avahi-common/malloc.h>
#include <avahi-common/simple-watch.h>
#include <avahi-core/core.h>
#include <avahi-core/log.h>
#include <avahi-core/lookup.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "NetworkState.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int32_t success = 0;
constexpr std::int32_t failure = -1;

/// Unit of the browse argument.
constexpr std::chrono::milliseconds browseUnit{10};
constexpr std::string_view defaultDomain = "local";
/// Time of the second query. A responder does not repeat a record that it has multicast within the
/// last half second, and Avahi itself repeats a query only after a whole second. A browse of one
/// second would therefore miss a camera that has just been announced, or whose response was lost.
/// The second query needs a second listener, because Avahi merges equal queries of one listener. It
/// listens from the start and includes the known records in its query, so that no responder repeats
/// them.
constexpr std::chrono::milliseconds askAgainAfter{550};

struct SServiceType {
    std::string type;
    std::string domain;
};

struct SInstance {
    std::uint32_t address;
    std::string name;
    bool operator==(const SInstance&) const = default;
};

/// The results of one browse, filled by the callbacks of Avahi.
struct SBrowse {
    SServiceType wanted;
    std::vector<SInstance> instances;
    bool outOfMemory = false;
};

struct SFree {
    void operator()(AvahiSimplePoll* poll) const { avahi_simple_poll_free(poll); }
    void operator()(AvahiServer* server) const { avahi_server_free(server); }
};

/// Splits "_http._tcp.local" into "_http._tcp" and "local". A type has two labels; the rest is the
/// domain.
SServiceType SplitType(std::string_view text) {
    if (text.ends_with('.')) text.remove_suffix(1);
    const std::size_t labelEnd = text.find('.');
    const std::size_t typeEnd =
        labelEnd == std::string_view::npos ? labelEnd : text.find('.', labelEnd + 1);
    if (typeEnd == std::string_view::npos) return {std::string(text), std::string(defaultDomain)};
    return {std::string(text.substr(0, typeEnd)), std::string(text.substr(typeEnd + 1))};
}

/// An instance is reported once per interface and query, and again at each change of its records.
void AddInstance(SBrowse& browse, const char* name, std::uint32_t address) noexcept {
    try {
        SInstance instance{address, name};
        if (std::ranges::find(browse.instances, instance) == browse.instances.end()) {
            browse.instances.push_back(std::move(instance));
        }
    } catch (const std::bad_alloc&) {
        browse.outOfMemory = true;  // no exception may pass through Avahi's frames
    }
}

/// One query, with the listener that sends it.
struct SQuestion {
    [[nodiscard]] bool Listen(const AvahiPoll* poll);
    [[nodiscard]] bool Ask();
    /// Returns true for an instance that has already been resolved.
    [[nodiscard]] bool IsSettled(const char* name) const;

    SBrowse& browse;
    bool repeated = false;
    std::unique_ptr<AvahiServer, SFree> server;
};

extern "C" {

static void KeepQuiet(AvahiLogLevel, const char*) {}

/// A poll that reports an interruption as "nothing ready". Avahi itself would restart the full wait
/// each time, so that a steady signal would block the browse without end.
static int PollOnce(struct pollfd* waiting, unsigned int count, int timeout, void*) {
    const int ready = ::poll(waiting, count, timeout);
    if (ready >= 0 || errno != EINTR) return ready;
    for (unsigned int i = 0; i < count; ++i) waiting[i].revents = 0;
    return 0;
}

static void OnServerState(AvahiServer*, AvahiServerState, void*) {}

static void OnResolved(AvahiSServiceResolver*, AvahiIfIndex, AvahiProtocol,
                       AvahiResolverEvent event, const char* name, const char*, const char*,
                       const char*, const AvahiAddress* address, std::uint16_t, AvahiStringList*,
                       AvahiLookupResultFlags, void* context) {
    if (event != AVAHI_RESOLVER_FOUND || address == nullptr) return;
    if (address->proto != AVAHI_PROTO_INET) return;
    AddInstance(*static_cast<SBrowse*>(context), name, address->data.ipv4.address);
}

static void OnBrowsed(AvahiSServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
                      AvahiBrowserEvent event, const char* name, const char*, const char* domain,
                      AvahiLookupResultFlags, void* context) {
    if (event != AVAHI_BROWSER_NEW) return;
    const auto& question = *static_cast<SQuestion*>(context);
    if (question.IsSettled(name)) return;
    constexpr auto flags =
        static_cast<AvahiLookupFlags>(AVAHI_LOOKUP_USE_MULTICAST | AVAHI_LOOKUP_NO_TXT);
    // The resolver belongs to the server, which destroys it.
    avahi_s_service_resolver_new(question.server.get(), interface, protocol, name,
                                 question.browse.wanted.type.c_str(), domain, AVAHI_PROTO_INET,
                                 flags, OnResolved, &question.browse);
}

}  // extern "C"

/// Returns false, with a line on standard error, if multicast DNS lacks a resource. Avahi would
/// abort the process.
bool CanListen(std::size_t descriptors) {
    const std::string obstacle = platform::MulticastDnsObstacle(descriptors);
    if (obstacle.empty()) return true;
    std::fprintf(stderr, "dns_sd: the browse cannot run: %s\n", obstacle.c_str());
    return false;
}

std::unique_ptr<AvahiServer, SFree> MakeServer(const AvahiPoll* poll) {
    // Avahi's log exists once per process and goes to standard error by default.
    static std::once_flag once;
    std::call_once(once, [] { avahi_set_log_function(KeepQuiet); });

    // Checked again, because threads of the host may have opened descriptors meanwhile.
    constexpr std::size_t descriptors = 2;  // a multicast socket and one for changes of interfaces
    if (!CanListen(descriptors)) return nullptr;

    AvahiServerConfig config;
    avahi_server_config_init(&config);
    config.host_name = avahi_strdup("dns-sd-browse");  // not published, but must be valid
    config.use_ipv6 = 0;
    config.disable_publishing = 1;
    config.publish_hinfo = 0;
    config.publish_addresses = 0;
    config.publish_workstation = 0;
    config.publish_domain = 0;
    config.enable_wide_area = 0;
    int error = 0;
    AvahiServer* const server = avahi_server_new(poll, &config, OnServerState, nullptr, &error);
    avahi_server_config_free(&config);
    return std::unique_ptr<AvahiServer, SFree>(server);
}

bool SQuestion::Listen(const AvahiPoll* poll) {
    server = MakeServer(poll);
    return server != nullptr;
}

bool SQuestion::Ask() {
    return avahi_s_service_browser_new(server.get(), AVAHI_IF_UNSPEC, AVAHI_PROTO_INET,
                                       browse.wanted.type.c_str(), browse.wanted.domain.c_str(),
                                       AVAHI_LOOKUP_USE_MULTICAST, OnBrowsed, this) != nullptr;
}

bool SQuestion::IsSettled(const char* name) const {
    return repeated &&
           std::ranges::find(browse.instances, name, &SInstance::name) != browse.instances.end();
}

/// Runs Avahi until a point in time. Returns false if it fails.
bool ServeUntil(AvahiSimplePoll* poll, Clock::time_point end) {
    constexpr std::int64_t longestWait = 60'000;  // milliseconds; the poll takes an int
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0) return true;
        const int wait = static_cast<int>(std::min<std::int64_t>(left.count(), longestWait));
        if (avahi_simple_poll_iterate(poll, wait) != 0) return false;
    }
}

/// Fills `browse` until the time is up, even if instances are still being resolved. Returns false
/// if the browse could not run.
bool RunBrowse(SBrowse& browse, Clock::time_point end) {
    if (!CanListen(platform::searchDescriptors)) return false;
    const std::unique_ptr<AvahiSimplePoll, SFree> poll(avahi_simple_poll_new());
    if (poll == nullptr) return false;
    avahi_simple_poll_set_func(poll.get(), PollOnce, nullptr);
    const AvahiPoll* const events = avahi_simple_poll_get(poll.get());
    SQuestion first{browse, false, nullptr};
    SQuestion second{browse, true, nullptr};
    if (!first.Listen(events) || !second.Listen(events) || !first.Ask()) return false;
    const auto askAgain = Clock::now() + askAgainAfter;
    if (askAgain < end && !(ServeUntil(poll.get(), askAgain) && second.Ask())) return false;
    return ServeUntil(poll.get(), end);
}

}  // namespace

std::int32_t dns_sd(const char* serviceType, DnsSdCallback callback, void* context,
                    std::int32_t browseArgument) {
    if (serviceType == nullptr || callback == nullptr || browseArgument < 0) return failure;
    SBrowse browse;
    try {
        const Clock::time_point end = Clock::now() + browseArgument * browseUnit;
        browse.wanted = SplitType(serviceType);
        if (!avahi_is_valid_service_type_strict(browse.wanted.type.c_str()) ||
            !avahi_is_valid_domain_name(browse.wanted.domain.c_str())) {
            return failure;
        }
        if (!RunBrowse(browse, end) || browse.outOfMemory) return failure;
    } catch (const std::bad_alloc&) {
        return failure;
    }
    // Called after the listeners have ended, because the callback may do anything, even browse
    // again.
    for (const SInstance& instance : browse.instances) {
        callback(instance.address, instance.name.c_str(), context);
    }
    return success;
}
