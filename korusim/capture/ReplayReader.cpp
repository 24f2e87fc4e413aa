#include "ReplayReader.h"

#include <stdexcept>
#include <utility>

namespace korusim {
namespace {

/// Limits of a batch. It must last longer than reading the next one takes.
constexpr std::size_t maxBatchPackets = 512;
constexpr std::size_t maxBatchBytes = std::size_t{1} << 20;

}  // namespace

CReplayReader::CReplayReader(FrameSourceMaker makeSource, const SRecordedStream& stream, bool loop)
    : make(std::move(makeSource)), recorded(&stream), repeat(loop) {}

/// Returns false if there is no other round.
bool CReplayReader::BeginRound() {
    if (source != nullptr) {
        if (!repeat) return false;
        ++round;
    }
    source.reset();  // it holds a descriptor
    source = make();
    packets = {};
    packetsOfRound = 0;
    return true;
}

void CReplayReader::Fill(SReplayBatch& batch) {
    batch.packets.clear();
    batch.bytes.clear();
    batch.last = false;
    if (source == nullptr) (void)BeginRound();
    while (!stopped && batch.packets.size() < maxBatchPackets &&
           batch.bytes.size() < maxBatchBytes) {
        const auto frame = packets.frames() < recorded->lastFrame ? source->Next() : std::nullopt;
        if (!frame) {
            if (packetsOfRound == 0) throw std::runtime_error("the capture has changed");
            batch.last = !BeginRound();
            if (batch.last) return;
            continue;
        }
        const CPacketReader::Packet packet = packets.Read(*frame);
        const auto* const datagram = std::get_if<SUdpDatagram>(&packet);
        if (datagram == nullptr || packets.frames() <= recorded->firstFrame) continue;
        AddPacket(frame->time, *datagram, batch);
    }
}

void CReplayReader::AddPacket(std::int64_t time, const SUdpDatagram& datagram,
                              SReplayBatch& batch) {
    const bool rtp = recorded->IsRtp(datagram);
    if ((!rtp && !recorded->IsRtcp(datagram)) || datagram.cut) return;
    if (rtp && !ReadRtpHeader(datagram.payload)) return;
    batch.packets.push_back({time, round, !rtp, batch.bytes.size(), datagram.payload.size()});
    batch.bytes.insert(batch.bytes.end(), datagram.payload.begin(), datagram.payload.end());
    if (rtp) ++packetsOfRound;
}

}  // namespace korusim
