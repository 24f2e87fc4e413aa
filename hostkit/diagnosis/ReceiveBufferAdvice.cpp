#include "Diagnosis.h"
#include "NetworkHints.h"

namespace hostkit {
namespace {

constexpr std::uint64_t kibibyte = 1024;

std::string Kibibytes(std::uint64_t bytes) { return std::to_string(bytes / kibibyte) + " KiB"; }

}  // namespace

std::string ReceiveBufferText(const platform::SReceiveBuffers& buffers) {
    const std::string requested =
        buffers.initial ? Kibibytes(requestedBuffers * *buffers.initial) + " requested"
                        : "requested size unknown";
    if (!buffers.granted) return requested + ", granted size unknown";
    return Kibibytes(*buffers.granted) + (buffers.initial ? " of " : ", ") + requested;
}

std::string ReceiveBufferAdvice(const platform::SReceiveBuffers& buffers, double stall) {
    // Shorter ones occur on any machine.
    constexpr double longStall = 0.25;
    if (stall >= longStall) {
        const std::string milliseconds = std::to_string(static_cast<int>(stall * 1000));
        return "this program did not run for " + milliseconds +
               " ms, because it was stopped or the machine was busy; a larger buffer would not "
               "help: do not stop it, and close programs that keep the machine busy";
    }
    const std::string shorten =
        "close programs that keep the machine busy, keep the frame callback short, or " +
        platform::InitialBufferHint() + ", of which eight times is requested";
    if (!buffers.limit || !buffers.granted || !buffers.initial) return shorten;
    const std::uint64_t requested = requestedBuffers * *buffers.initial;
    if (*buffers.granted < requested) {
        return "allow the buffer that is requested: " + platform::BufferLimitHint(requested);
    }
    return "the buffer is as large as requested: " + shorten;
}

}  // namespace hostkit
