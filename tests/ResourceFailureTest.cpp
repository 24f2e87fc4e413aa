// A system that runs out of sockets, threads or memory at each single request of a device: the call
// fails or throws, and the device can be closed and used again.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <system_error>

#include "PixelTypes.h"
#include "RtspClient.h"
#include "support/Devices.h"
#include "support/Program.h"
#include "support/Resources.h"
#include "support/ScriptedPeer.h"

namespace {

/// Counts requests of one kind on the thread that arms it, and makes one of them fail.
struct SFault {
    int until = 0;  // requests before the one that fails; negative afterwards
    bool Strikes() { return until >= 0 && until-- == 0; }
};
thread_local SFault* noSocket = nullptr;
thread_local SFault* noThread = nullptr;
thread_local SFault* noMemory = nullptr;

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

/// Number of memory requests of this thread.
thread_local std::size_t memoryRequests = 0;

void* AllocOrNull(std::size_t size) {
    ++memoryRequests;
    return noMemory != nullptr && noMemory->Strikes() ? nullptr : std::malloc(size != 0 ? size : 1);
}

}  // namespace

// Replace the functions of the system.
int socket(int domain, int type, int protocol) noexcept {
    static auto* const real = Next<int(int, int, int)>("socket");
    if (noSocket != nullptr && noSocket->Strikes()) {
        errno = EMFILE;
        return -1;
    }
    return real(domain, type, protocol);
}
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    static auto* const real =
        Next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    if (noThread != nullptr && noThread->Strikes()) return EAGAIN;
    return real(thread, attributes, body, argument);
}
#if defined(__SANITIZE_THREAD__)
constexpr bool buffersCount =
    false;  // it calls `realloc` in threads whose variables do not exist yet
#else
constexpr bool buffersCount = true;
void* realloc(void* old, std::size_t size) noexcept {
    static auto* const real = Next<void*(void*, std::size_t)>("realloc");
    ++memoryRequests;
    return real(old, size);
}
#endif
void* operator new(std::size_t size) {
    if (void* const memory = AllocOrNull(size)) return memory;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return AllocOrNull(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void* qmx::Alloc(std::size_t bytes) noexcept { return AllocOrNull(bytes); }

namespace {

using namespace qmx::cam;
using namespace test;

std::atomic<unsigned> frames{0};
void Count(void*, const std::uint8_t*, std::uint32_t) { ++frames; }

/// Opens a device and starts its stream. Returns false, or throws, if a step fails.
bool Begin(IDevice& device) {
    return device.Open(Camera("127.0.0.11"), treeAndStreams) &&
           device.SetFormat(64, 48, priv::pixelTypeRaw) && device.StartContinuous(Count, nullptr);
}

TEST(ResourceFailure, ADeviceSurvivesEachSingleOne) {
    struct {
        const char* name;
        SFault*& armed;
        int least;  // requests in one run
    } const kinds[] = {{"socket", noSocket, 4}, {"thread", noThread, 3}, {"memory", noMemory, 60}};
    const CSimulator camera({"127.0.0.11,size=64x48,rate=500"});
    testing::internal::CaptureStderr();  // thousands of lines
    for (const auto& [name, armed, least] : kinds) {
        int request = 0;
        for (bool struck = true; struck; ++request) {
            SCOPED_TRACE(name + std::string(" ") + std::to_string(request));
            const CNothingLeft guard;
            SFault fault{request};
            bool began = false;
            qmx::TSharedPtr<IDevice> device;
            armed = &fault;
            try {
                device = MakeDevice();
                began = Begin(*device);
                if (began) device->StopContinuous();
                device->Close();
            } catch (const std::bad_alloc&) {
            } catch (const std::system_error& error) {
                EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
            }
            armed = nullptr;
            struck = fault.until < 0;
            EXPECT_TRUE(began || struck);
            if (!device) continue;
            if (&armed == &noThread && struck) {
                EXPECT_TRUE(device->StartContinuous(Count, nullptr)) << "no session is left over";
            }
            device->Close();
            if (!Begin(*device)) {
                // Without memory for a response its contents are lost. The session then remains in
                // this object, as after any lost response, but not in a new one.
                EXPECT_EQ(&armed, &noMemory);
                device = MakeDevice();
                ASSERT_TRUE(Begin(*device));
            }
            frames = 0;
            ASSERT_TRUE(WaitFor([] { return frames > 0; }));
            EXPECT_TRUE(device->Suspend());
        }
        EXPECT_GE(request, least) << name;
        // Destroys a device when the system has none left.
        qmx::TSharedPtr<IDevice> device = MakeDevice();
        ASSERT_TRUE(Begin(*device));
        SFault fault{0};
        armed = &fault;
        device.Reset();
        armed = nullptr;
    }
    testing::internal::GetCapturedStderr();
}

TEST(ResourceFailure, AConnectionEndsWithoutMemoryForTeardown) {
    CScriptedPeer peer({Ok(0), Ok(1, setUp), Ok(0)});
    CRtspClient client;
    ASSERT_TRUE(client.Connect("127.0.0.1", peer.port()) && client.Setup("/", 1, 2));
    SFault fault{0};
    noMemory = &fault;
    client.Close();
    noMemory = nullptr;
    EXPECT_LT(fault.until, 0) << "the request had no memory";
    EXPECT_TRUE(client.IsSetUp() && client.Connect("127.0.0.1", peer.port()));
    EXPECT_EQ(peer.Methods(), "OPTIONS SETUP OPTIONS");
}

/// Checks that a run allocates only its buffers and memory for a frame larger than all before.
struct SThrifty {
    std::atomic<unsigned> frames{0};
    std::atomic<unsigned> faults{0};
    std::uint32_t largest = 0;
    std::size_t requests = 0;
    static void Take(void* context, const std::uint8_t*, std::uint32_t length) {
        auto& self = *static_cast<SThrifty*>(context);
        if (length > self.largest) {
            self.largest = length;
            self.requests = memoryRequests;
        }
        if (buffersCount && self.requests == 0) ++self.faults;  // nothing is counted
        if (memoryRequests != self.requests) ++self.faults;
        ++self.frames;
    }
};

TEST(ResourceUse, NoPacketTakesMemory) {
    const CSimulator cameras({"127.0.0.11,size=64x48,rate=500",
                              "127.0.0.12,size=64x48,rate=500,streams=mjls+mjpg,mtu=200"});
    for (const auto& [address, type] : {std::pair("127.0.0.11", priv::pixelTypeRaw),
                                        std::pair("127.0.0.12", priv::pixelTypeJpegLs),
                                        std::pair("127.0.0.12", priv::pixelTypeJpeg)}) {
        const auto device = MakeDevice();
        SThrifty host;
        ASSERT_TRUE(device->Open(Camera(address), treeAndStreams));
        device->SetFormat(64, 48, type);
        ASSERT_TRUE(device->StartContinuous(SThrifty::Take, &host));
        EXPECT_TRUE(WaitFor([&] { return host.frames >= 200; }));
        EXPECT_TRUE(device->StopContinuous());
        EXPECT_EQ(host.faults, 0u) << address;
    }
}

}  // namespace
