// The exported function, and the two that it registers with the factory. Nothing here may run when
// the library is merely loaded.
#include "KORURTSPInterface.h"

#if defined(_WIN32)
#define KORU_EXPORT __declspec(dllexport)
#else
#define KORU_EXPORT __attribute__((visibility("default")))
#endif

namespace qmx::cam {
namespace {

IInterface* CreateInterface() { return new CKORURTSPInterface; }

/// Ignores null and objects of other classes.
void DestroyInterface(IInterface* object) { delete dynamic_cast<CKORURTSPInterface*>(object); }

}  // namespace
}  // namespace qmx::cam

/// Registers the interface with the host's factory and returns the factory's result. The host calls
/// it once, on its own thread, after loading the library.
extern "C" KORU_EXPORT bool qmxInitPlugin() {
    using namespace qmx::cam;
    if (qmx::logger().verbose()) qmx::logger().WriteLine("KORU RTSP Plugin loaded");
    return interfaceFactory().RegisterInterface("KORURTSP", CreateInterface, DestroyInterface);
}
