#include "TcpStream.h"

#include <algorithm>
#include <utility>

namespace korusim {
namespace {

/// Most bytes, and segments, that wait for earlier ones. RTSP messages are shorter.
constexpr std::size_t maxWaitingBytes = 262'144;
constexpr std::size_t maxWaitingSegments = 256;
/// Positions begin here, so that a segment before the first one has a position too.
constexpr std::uint64_t firstPosition = std::uint64_t{1} << 33;

}  // namespace

std::uint64_t CTcpStream::PositionOf(std::uint32_t sequence) const {
    if (!next) return firstPosition + sequence;
    const auto distance = static_cast<std::int32_t>(sequence - static_cast<std::uint32_t>(*next));
    return *next + static_cast<std::uint64_t>(std::int64_t{distance});
}

std::vector<STcpPiece> CTcpStream::Add(const STcpSegment& segment) {
    std::vector<STcpPiece> pieces;
    if (segment.begins) {
        // A new connection may use the ports of an earlier one.
        pieces = Finish();
        *this = {};
        next = PositionOf(segment.sequence + 1);
    }
    if (segment.payload.empty() && segment.missing == 0) return pieces;
    const std::uint64_t position = PositionOf(segment.sequence);
    if (!next) next = position;
    SWaiting& entry = waiting[position];
    // A repeated segment may contain more than the first one did.
    if (segment.payload.size() >= entry.bytes.size()) {
        waitingBytes += segment.payload.size() - entry.bytes.size();
        entry = {std::string(segment.payload.begin(), segment.payload.end()), segment.missing};
    }
    Deliver(pieces);
    while (waitingBytes > maxWaitingBytes || waiting.size() > maxWaitingSegments) {
        next = waiting.begin()->first;
        gap = true;
        Deliver(pieces);
    }
    return pieces;
}

/// Delivers the waiting bytes as far as they are consecutive.
void CTcpStream::Deliver(std::vector<STcpPiece>& pieces) {
    while (!waiting.empty() && waiting.begin()->first <= *next) {
        const auto first = waiting.begin();
        SWaiting entry = std::move(first->second);
        const std::uint64_t known =
            std::min<std::uint64_t>(*next - first->first, entry.bytes.size());
        const std::uint64_t end = first->first + entry.bytes.size();
        waitingBytes -= entry.bytes.size();
        waiting.erase(first);
        if (known < entry.bytes.size()) {
            pieces.push_back({entry.bytes.substr(known), std::exchange(gap, false)});
        }
        if (end + entry.missing > *next) {
            gap = gap || entry.missing != 0;
            next = end + entry.missing;
        }
    }
}

std::vector<STcpPiece> CTcpStream::Finish() {
    std::vector<STcpPiece> pieces;
    while (!waiting.empty()) {
        next = waiting.begin()->first;
        gap = true;
        Deliver(pieces);
    }
    return pieces;
}

}  // namespace korusim
