// A device with scripted results of the system and of discovery: two cameras with the same name, a
// start without sockets, and a host name that no longer resolves.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>

#include "PixelTypes.h"
#include "dns_sd.h"
#include "support/Devices.h"
#include "support/Resources.h"

namespace {

thread_local int socketsLeft = -1;  // negative: no limit
thread_local bool namesResolve = true;
int browses = 0;

}  // namespace

// Replace the functions of the system.
int socket(int domain, int type, int protocol) noexcept {
    static auto* const real = reinterpret_cast<decltype(&socket)>(::dlsym(RTLD_NEXT, "socket"));
    if (socketsLeft < 0 || socketsLeft-- > 0) return real(domain, type, protocol);
    socketsLeft = 0;
    errno = EMFILE;
    return -1;
}
int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** found) {
    static auto* const real =
        reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    return namesResolve ? real(host, service, hints, found) : EAI_AGAIN;
}
std::int32_t dns_sd(const char*, DnsSdCallback found, void* context, std::int32_t) {
    ++browses;
    const std::pair<const char*, const char*> cameras[] = {
        {"127.0.0.2", "Roof"}, {"127.0.0.3", "Roof"}, {"127.0.0.4", "Attic"}};
    for (const auto& [address, name] : cameras) {
        found(platform::ParseIpv4(address).value(), name, context);
    }
    return 0;
}

namespace {

using namespace qmx::cam;
using namespace test;

// If the host has flagged the entry "Name", the last camera of that name is used. Without the flag,
// or without such a camera, it is the one at the address.
TEST(DeviceSystem, FindsItsCameraByName) {
    const Answers streams = {"ERROR\n", "OK\n",
                             "ERROR\n"};  // no .gcam, an .rtp, no streaming switch
    const struct {
        const char* name;
        std::uint8_t entryFlag;
        const char* camera;
    } cases[] = {{"Roof", 1, "127.0.0.3"}, {"Cellar", 1, "127.0.0.4"}, {"Roof", 0, "127.0.0.4"}};
    for (const auto& [name, entryFlag, camera] : cases) {
        const CScriptedPeer roof(streams, "127.0.0.2", treePort, "\n");
        const CScriptedPeer otherRoof(streams, "127.0.0.3", treePort, "\n");
        const CScriptedPeer attic(streams, "127.0.0.4", treePort, "\n");
        const CScriptedPeer server(opening, camera, rtspPort);
        SDeviceInfo info = Camera("127.0.0.4");
        info.parameters["Name"].setValue(name);
        info.parameters["Name"].entryFlag = entryFlag;
        browses = 0;
        qmx::logger().SetVerbose(true);  // details are still not requested
        EXPECT_TRUE(MakeDevice()->Open(info, treeAndStreams)) << name;
        qmx::logger().SetVerbose(false);
        EXPECT_EQ(browses, entryFlag);
        EXPECT_EQ(server.Methods(), "OPTIONS DESCRIBE") << name;
    }
}

// A failed start leaves no socket open, and the next one streams, unless the camera had already
// granted a session, which must be ended first.
TEST(DeviceSystem, AStartMayLackSocketsOrAnAddress) {
    for (const int sockets : {0, 1, 2}) {
        const bool granted = sockets == 2;
        CScriptedPeer peer(Joined(opening, starting, stopping), "127.0.0.1", rtspPort);
        const qmx::TSharedPtr<IDevice> device = MakeDevice();
        ASSERT_TRUE(device->Open(Camera("localhost"), streamsOnly));
        device->SetFormat(640, 480, priv::pixelTypeRaw);
        const std::size_t descriptors = DescriptorCount();
        testing::internal::CaptureStderr();
        socketsLeft = sockets;
        namesResolve = false;
        EXPECT_FALSE(device->StartContinuous(Ignore, nullptr));
        socketsLeft = -1;
        namesResolve = true;
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  std::string("CKORURTSPDevice::StartContinuous: ") +
                      (granted ? "Server RTP setup failed.\n" : "Local RTP setup failed.\n"));
        EXPECT_EQ(DescriptorCount(), descriptors);
        EXPECT_EQ(device->StartContinuous(Ignore, nullptr), !granted);
        EXPECT_EQ(peer.Methods(),
                  granted ? "OPTIONS DESCRIBE SETUP" : "OPTIONS DESCRIBE SETUP PLAY");
    }
}

}  // namespace
