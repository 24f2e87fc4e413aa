// Discovery, the interface object and the entry point with scripted libraries: this file defines
// the browse, the node tree, the log and the factory, and records every call in a journal.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "Arbor.h"
#include "CameraDiscovery.h"
#include "KORURTSPInterface.h"
#include "dns_sd.h"
#include "qmxcam.h"

extern "C" bool qmxInitPlugin();

namespace {

using Nodes = std::map<std::string, std::string>;

/// The results of the libraries, and the calls that they received.
struct SScript {
    std::vector<std::pair<std::string, std::string>> announced;  // address and name
    std::map<std::string, Nodes> trees;                          // by address
    std::vector<std::string> journal;
    std::set<ArbHandle> connections;
    std::map<ArbHandle, std::string> addresses;
    ArbHandle lastConnection = 0;
    int texts = 0;
    int allocationsLeft = -1;  // negative: without limit
};
SScript script;

void Note(const std::string& entry) { script.journal.push_back(entry); }

std::uint32_t Address(const std::string& text) {
    unsigned bytes[4];
    EXPECT_EQ(std::sscanf(text.c_str(), "%u.%u.%u.%u", bytes, bytes + 1, bytes + 2, bytes + 3), 4);
    std::uint8_t octets[4];
    std::copy(std::begin(bytes), std::end(bytes), octets);
    std::uint32_t address = 0;
    std::memcpy(&address, octets, sizeof(address));
    return address;
}

/// Returns the value of a node; null without such a node or connection.
const std::string* Node(ArbHandle connection, const char* path) {
    EXPECT_TRUE(script.connections.contains(connection)) << path;
    const Nodes& nodes = script.trees[script.addresses[connection]];
    const auto node = nodes.find(path);
    return node != nodes.end() ? &node->second : nullptr;
}

}  // namespace

std::int32_t dns_sd(const char* serviceType, DnsSdCallback callback, void* context,
                    std::int32_t browseArgument) {
    Note(std::string(serviceType) + " " + std::to_string(browseArgument));
    for (const auto& [address, name] : script.announced) {
        const auto copy = std::make_unique<std::string>(name);  // destroyed after the call
        callback(Address(address), copy->c_str(), context);
        copy->assign(copy->size(), '?');
    }
    return -1;  // the result must be ignored
}
std::int32_t arbConnect(ArbHandle* connection, const char* address, std::int32_t options) {
    Note(std::string("connect ") + address);
    if (options != 0 || !script.trees.contains(address)) return 7;
    *connection = ++script.lastConnection;
    script.connections.insert(*connection);
    script.addresses[*connection] = address;
    return 0;
}
std::int32_t arbVerify(ArbHandle connection, const char* path) {
    Note(std::string("verify ") + path);
    return Node(connection, path) != nullptr ? 0 : 1;
}
std::int32_t arbGetString(ArbHandle connection, const char* path, char** text) {
    Note(std::string("string ") + path);
    const std::string* const value = Node(connection, path);
    if (value == nullptr) return 1;
    *text = ::strdup(value->c_str());
    ++script.texts;
    return 0;
}
std::int32_t arbFreeString(char** text) {
    std::free(*text);
    --script.texts;
    return 1;
}
std::int32_t arbGetBool(ArbHandle connection, const char* path, std::uint8_t* flag) {
    Note(std::string("bool ") + path);
    const std::string* const value = Node(connection, path);
    if (value == nullptr || (*value != "true" && *value != "false")) return 1;
    *flag = *value == "true" ? 1 : 0;
    return 0;
}
std::int32_t arbDisconnect(ArbHandle connection) {
    Note("disconnect");
    EXPECT_EQ(script.connections.erase(connection), 1u);
    return 1;
}

void qmx::CLog::WriteLine(const char* format, ...) {
    char line[512];
    std::va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    Note(std::string("log ") + line);
}
void* qmx::Alloc(std::size_t bytes) noexcept {
    if (script.allocationsLeft == 0) return nullptr;
    if (script.allocationsLeft > 0) --script.allocationsLeft;
    return std::malloc(bytes);
}

namespace {

using namespace qmx;
using namespace qmx::cam;

/// Receives the registration of the plug-in.
class CFactory final : public IInterfaceFactory {
   public:
    bool RegisterInterface(const CString& id, CreateFunction create,
                           DestroyFunction destroy) override {
        Note(std::string("register ") + id.c_str());
        created = create;
        destroyed = destroy;
        return accepts;
    }
    IInterface* CreateInterface(const CString&) override { return nullptr; }
    void DestroyInterface(const CString&, IInterface*) override {}

    bool accepts = true;
    CreateFunction created = nullptr;
    DestroyFunction destroyed = nullptr;
};
CFactory factory;

constexpr char streaming[] = ".rtp.caps.config.rtsp.streaming.enabled";

std::string Journal() {
    std::string all;
    for (const std::string& entry : std::exchange(script.journal, {})) all += entry + "\n";
    return all;
}

struct SFound {
    bool any;
    std::string cameras;  // "address name, " of each, in order
    std::string journal;  // without the browse
};

SFound Find(bool logDetails, bool verbose, const char* listedBefore = nullptr) {
    logger().SetVerbose(verbose);
    TArray<priv::SCaptureDevice> devices;
    if (listedBefore != nullptr) devices.append({Address(listedBefore), "before"});
    const bool any = priv::FindCaptureDevices(devices, logDetails);
    SFound found{any, "", Journal()};
    for (const priv::SCaptureDevice& device : devices) {
        found.cameras += priv::AddressText(device.address).c_str() + std::string(" ") +
                         device.name.c_str() + ", ";
    }
    const std::string browse = "_koru-ircam._tcp.local 100\n";
    EXPECT_TRUE(found.journal.starts_with(browse)) << found.journal;
    found.journal.erase(0, browse.size());
    EXPECT_TRUE(script.connections.empty() && script.texts == 0) << "something was not given back";
    return found;
}

TEST(Discovery, AcceptsCamerasByTheirNodeTree) {
    const std::string prefix = "log KORURTSP::FindCaptureDevices(10.0.0.5): ";
    const std::string gcam = "connect 10.0.0.5\nverify .gcam\n";
    const std::string rtp = gcam + "verify .rtp\n";
    const std::string enabled = rtp + "verify " + streaming + "\n";
    const std::string read = enabled + "bool " + streaming + "\n";
    const std::string off = prefix + "rtsp streaming not enabled, skipping.\n";
    const struct {
        const char* name;
        bool reachable;
        Nodes nodes;
        bool kept;
        std::string calls;
        std::string line;  // in a verbose log, after the calls
    } cases[] = {
        {"another kind",
         true,
         {{".gcam", ""}, {".rtp", ""}},
         false,
         gcam,
         prefix + ".gcam tree found, skipping.\n"},
        {"no streams", true, {}, false, rtp, prefix + ".rtp tree not found, skipping.\n"},
        {"no switch", true, {{".rtp", ""}}, true, enabled, ""},
        {"an unreadable switch", true, {{".rtp", ""}, {streaming, "?"}}, false, read, off},
        {"switched off", true, {{".rtp", ""}, {streaming, "false"}}, false, read, off},
        {"switched on", true, {{".rtp", ""}, {streaming, "true"}}, true, read, ""},
        {"unreachable", false, {}, false, "connect 10.0.0.5\n", ""},
    };
    for (const auto& row : cases) {
        for (const bool verbose : {false, true}) {
            SCOPED_TRACE(row.name + std::string(verbose ? ", verbose" : ""));
            script = {};
            script.announced = {{"10.0.0.5", "Roof"}};
            if (row.reachable) script.trees["10.0.0.5"] = row.nodes;
            const SFound found = Find(false, verbose);
            EXPECT_EQ(found.any, row.kept);
            EXPECT_EQ(found.cameras, row.kept ? "10.0.0.5 Roof, " : "");
            std::string expected = row.calls;
            if (verbose) {
                expected =
                    "log KORURTSP::FindCaptureDevices(): Found device 10.0.0.5.\n" + expected;
            }
            expected += row.reachable ? "disconnect\n" : prefix + "Failed to connect.\n";
            if (verbose) expected += row.line;
            EXPECT_EQ(found.journal, expected);
        }
    }
}

TEST(Discovery, LogsDetailsOnlyWhenBothAreWanted) {
    script = {};
    script.announced = {{"10.0.0.5", "Roof"}};
    script.trees["10.0.0.5"] = {{".gcam", ""},
                                {".version.hwtype", "T7"},
                                {".version.product.serial", "S1"},
                                {".caps.config.segment", "G3"}};
    const std::string details =
        "string .version.hwtype\nstring .version.product.name\nstring .version.product.serial\n"
        "string .caps.config.segment\nlog KORURTSP::FindCaptureDevices(10.0.0.5): hwtype: T7, "
        "name: Error, serial: S1, segment: G3.\n";
    for (const bool logDetails : {false, true}) {
        for (const bool verbose : {false, true}) {
            const SFound found = Find(logDetails, verbose);
            const bool logged = found.journal.find(details + "verify .gcam") != std::string::npos;
            EXPECT_EQ(logged, logDetails && verbose);
            EXPECT_EQ(found.journal.find("string") != std::string::npos, logDetails && verbose);
        }
    }
}

TEST(Discovery, ListsEachAddressOnceAndInOrder) {
    const Nodes good = {{".rtp", ""}};
    script = {};
    EXPECT_EQ(Find(true, true).journal, "") << "an empty network: nothing is logged";
    script.announced = {{"10.0.0.1", "A"}, {"10.0.0.2", "B"}, {"10.0.0.1", "Z"},
                        {"10.0.0.3", "B"}, {"10.0.0.4", "D"}, {"255.0.0.9", "E"}};
    for (const auto& [address, name] : script.announced) script.trees[address] = good;
    SFound found = Find(false, false);
    EXPECT_EQ(found.cameras, "10.0.0.1 A, 10.0.0.2 B, 10.0.0.3 B, 10.0.0.4 D, 255.0.0.9 E, ");
    EXPECT_EQ(found.journal.find("10.0.0.1"), found.journal.rfind("10.0.0.1")) << "one probe";
    script.trees["10.0.0.1"] = script.trees["10.0.0.3"] = script.trees["255.0.0.9"] = {};
    EXPECT_EQ(Find(false, false).cameras, "10.0.0.2 B, 10.0.0.4 D, ");
    EXPECT_EQ(Find(false, false, "10.0.0.2").cameras, "10.0.0.2 before, 10.0.0.4 D, ")
        << "an entry that was there before is probed and stays";
    script.announced = {{"10.0.0.1", "A"}};
    EXPECT_FALSE(Find(false, false).any);
}

TEST(Discovery, ThrowsRatherThanListSomeOfTheCameras) {
    script = {};
    script.announced = {{"10.0.0.1", "A"}, {"10.0.0.2", "B"}, {"10.0.0.3", "C"}};
    int needed = 0;
    for (bool thrown = true; thrown; ++needed) {
        ASSERT_LT(needed, 50);
        TArray<priv::SCaptureDevice> devices;
        script.allocationsLeft = needed;
        thrown = false;
        try {
            priv::FindCaptureDevices(devices, false);
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
        script.allocationsLeft = -1;
        EXPECT_TRUE(script.connections.empty());
    }
    EXPECT_GT(needed, 5);
}

/// Number of delegates that share the object of a sink.
int sinks = 0;
constexpr SDelegateManager counting = {[](void* object) {
                                           ++sinks;
                                           return object;
                                       },
                                       [](void*) { --sinks; }};

std::string TextOf(SDeviceInfo& info, const char* key) {
    return info.parameters[key].value().ToString().c_str();
}

TEST(Interface, DescribesItselfAndEachCamera) {
    script = {};
    CKORURTSPInterface interface;
    EXPECT_STREQ(interface.interfaceKind.c_str(), "Ethernet");
    EXPECT_STREQ(interface.typeId.c_str(), "KORURTSP");
    EXPECT_STREQ(interface.displayName.c_str(), "Ethernet (KORU RTSP)");
    EXPECT_STREQ(interface.description.c_str(), "Interface for KORU Ethernet RTP cameras.");
    EXPECT_STREQ(interface.interfaceId.c_str(), "KORURTSP");
    EXPECT_EQ(interface.integerAttribute, 100);
    EXPECT_TRUE(interface.firstFlag == 1 && interface.secondFlag == 1);
    const TArray<CEntry>& entries = interface.defaultDevice.parameters.entries();
    std::string described;
    for (const CEntry& entry : entries) {
        EXPECT_EQ(entry.editLevel(), EEditLevel{2});
        EXPECT_STREQ(entry.defaultValue().ToString().c_str(), "");
        described += entry.key().c_str() + std::string("|") + entry.label().c_str() + "|" +
                     entry.description().c_str() + "|";
    }
    EXPECT_EQ(described,
              "IP|IP Address|IP address of the connected camera.|Name|Name|Name of the device.|");

    std::vector<SDeviceInfo> found;
    const auto enumerate = [&] {
        found.clear();
        sinks = 1;
        EXPECT_TRUE(interface.EnumerateDevices(
            {[](void* list, SDeviceInfo info) {
                 static_cast<std::vector<SDeviceInfo>*>(list)->push_back(std::move(info));
             },
             &found, &counting}));
        EXPECT_EQ(sinks, 0) << "the sink is released";
    };
    enumerate();
    EXPECT_TRUE(found.empty());
    script.announced = {{"10.0.0.5", "Roof"}, {"192.168.1.200", "Gate"}};
    for (const auto& [address, name] : script.announced) script.trees[address] = {{".rtp", ""}};
    enumerate();
    ASSERT_EQ(found.size(), 2u);
    for (std::size_t i = 0; i < found.size(); ++i) {
        const auto& [address, name] = script.announced[i];
        EXPECT_EQ(found[i].deviceId.c_str(), address);
        EXPECT_EQ(TextOf(found[i], "IP"), address);
        EXPECT_EQ(TextOf(found[i], "Name"), name);
        EXPECT_STREQ(found[i].typeId.c_str(), "KORURTSP");
        EXPECT_STREQ(found[i].interfaceId.c_str(), "KORURTSP");
        EXPECT_STREQ(found[i].interfaceKind.c_str(), "Ethernet");
    }
    (void)Journal();
    logger().SetVerbose(true);
    enumerate();
    const std::string once = Journal();
    EXPECT_NE(once.find("string .version.hwtype"), std::string::npos) << "details are logged";
    enumerate();
    EXPECT_EQ(Journal(), once) << "nothing is cached";
    EXPECT_STREQ(interface.defaultDevice.deviceId.c_str(), "Default");
    EXPECT_EQ(TextOf(interface.defaultDevice, "IP") + TextOf(interface.defaultDevice, "Name"), "");
}

TEST(Entry, RegistersTheInterface) {
    script = {};
    for (const bool verbose : {true, false}) {
        logger().SetVerbose(verbose);
        factory.accepts = verbose;
        EXPECT_EQ(qmxInitPlugin(), factory.accepts);
        EXPECT_EQ(Journal(), std::string(verbose ? "log KORU RTSP Plugin loaded\n" : "") +
                                 "register KORURTSP\n");
    }
    static int alive = 0;
    struct SForeign final : IInterface {
        SForeign() { ++alive; }
        ~SForeign() override { --alive; }
        TSharedPtr<IDevice> CreateDevice() override { return {}; }
        bool EnumerateDevices(DeviceSink) override { return false; }
    } foreign;
    factory.destroyed(&foreign);
    factory.destroyed(nullptr);
    EXPECT_EQ(alive, 1) << "an object of another class is left alone";
    IInterface* const created = factory.created();
    EXPECT_STREQ(created->typeId.c_str(), "KORURTSP");
    factory.destroyed(created);  // the address sanitizer detects a leak
}

}  // namespace

qmx::cam::IInterfaceFactory& qmx::cam::interfaceFactory() { return factory; }
