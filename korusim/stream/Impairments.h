/// Simulates a bad network: loses, duplicates and delays RTP packets. The same seed repeats it.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <span>
#include <vector>

#include "CameraSettings.h"

namespace korusim {

/// Sends a packet. The bytes belong to the caller.
using PacketSink = std::function<void(std::span<const std::uint8_t>)>;

struct SImpairmentTally {
    std::uint64_t dropped = 0;
    std::uint64_t duplicated = 0;
    std::uint64_t reordered = 0;
};

class CImpairments {
   public:
    CImpairments(const SCameraSettings& settings, std::uint64_t seed);

    /// Passes on one packet: calls the sink for each packet to send now, in order. A delayed packet
    /// is sent after the next one.
    void Pass(std::span<const std::uint8_t> packet, const PacketSink& sink);
    /// Sends a delayed packet when no other one will follow.
    void Flush(const PacketSink& sink);

    [[nodiscard]] const SImpairmentTally& tally() const noexcept { return counts; }

   private:
    [[nodiscard]] bool Happens(double probability);

    double loss;
    double duplicate;
    double reorder;
    std::mt19937_64 random;
    std::vector<std::uint8_t> delayed;  // empty if there is none
    SImpairmentTally counts;
};

}  // namespace korusim
