/// Reads the packets of one recorded stream, in order, from its capture.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "CaptureIndex.h"
#include "FrameSource.h"

namespace korusim {

/// Opens a capture at its first frame. Throws `std::runtime_error` if it cannot.
using FrameSourceMaker = std::function<std::unique_ptr<CFrameSource>()>;

/// A datagram to send again.
struct SReplayPacket {
    std::int64_t time = 0;    ///< of the recording, in nanoseconds since 1970
    std::uint32_t round = 0;  ///< counted from 0
    bool rtcp = false;
    std::size_t offset = 0;  ///< of its bytes in the batch
    std::size_t size = 0;
};

/// Some consecutive packets.
struct SReplayBatch {
    std::vector<SReplayPacket> packets;
    std::vector<std::uint8_t> bytes;
    bool last = false;  ///< no packets follow

    [[nodiscard]] std::span<std::uint8_t> BytesOf(const SReplayPacket& packet) {
        return std::span(bytes).subspan(packet.offset, packet.size);
    }
};

/// Reads the capture again for each round. No payload is kept but those of a batch.
class CReplayReader {
   public:
    /// `stream` must remain valid.
    CReplayReader(FrameSourceMaker makeSource, const SRecordedStream& stream, bool loop);

    /// Replaces the packets of a batch by the next ones. Throws `std::runtime_error` if the capture
    /// cannot be read any more.
    void Fill(SReplayBatch& batch);
    /// Makes `Fill` in another thread return soon; its batch is of no use then.
    void Stop() noexcept { stopped = true; }

   private:
    [[nodiscard]] bool BeginRound();
    void AddPacket(std::int64_t time, const SUdpDatagram& datagram, SReplayBatch& batch);

    FrameSourceMaker make;
    const SRecordedStream* recorded;
    bool repeat;
    std::unique_ptr<CFrameSource> source;
    CPacketReader packets;
    std::uint32_t round = 0;
    std::uint64_t packetsOfRound = 0;
    std::atomic<bool> stopped{false};
};

}  // namespace korusim
