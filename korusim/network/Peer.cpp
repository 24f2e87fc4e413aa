#include "Peer.h"

#include <cstddef>

namespace korusim {
namespace {

constexpr std::size_t receivePieceBytes = 4096;
/// Most bytes that may wait for a peer. One that lets more pile up does not read them.
constexpr std::size_t maxQueuedResponses = 256;

}  // namespace

std::optional<std::string> CPeer::Receive() {
    std::string bytes(receivePieceBytes, '\0');
    const auto received = platform::ReceiveWaiting(socket, bytes);
    if (!received) return std::nullopt;
    bytes.resize(*received);
    return bytes;
}

void CPeer::Queue(std::string bytes, TimePoint due) {
    if (!bytes.empty()) waiting.push_back({std::move(bytes), due});
}

bool CPeer::Flush(TimePoint now) {
    if (waiting.size() > maxQueuedResponses) return false;
    blocked = false;
    while (!waiting.empty() && waiting.front().due <= now) {
        std::string& bytes = waiting.front().bytes;
        const auto sent = platform::SendFitting(socket, bytes);
        if (!sent) return false;
        bytes.erase(0, *sent);
        blocked = !bytes.empty();
        if (blocked) return true;
        waiting.pop_front();
    }
    return true;
}

std::optional<TimePoint> CPeer::nextDue() const {
    if (waiting.empty() || blocked) return std::nullopt;
    return waiting.front().due;
}

}  // namespace korusim
