/// What a bad network does to RTP packets: loses, doubles and delays them, repeatably.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <span>
#include <vector>

#include "CameraSettings.h"

namespace korusim {

/// Takes a packet that is to go out; the bytes are the caller's.
using PacketSink = std::function<void(std::span<const std::uint8_t>)>;

struct SImpairmentTally {
    std::uint64_t dropped = 0;
    std::uint64_t duplicated = 0;
    std::uint64_t reordered = 0;
};

class CImpairments {
   public:
    CImpairments(const SCameraSettings& settings, std::uint64_t seed);

    /// Passes one packet through: the sink gets what goes out now, in order. A delayed packet
    /// goes out behind the next one that does.
    void Pass(std::span<const std::uint8_t> packet, const PacketSink& sink);
    /// Lets go of a delayed packet when no next one will come.
    void Flush(const PacketSink& sink);

    [[nodiscard]] const SImpairmentTally& tally() const noexcept { return counts; }

   private:
    [[nodiscard]] bool Happens(double probability);

    double loss;
    double duplicate;
    double reorder;
    std::mt19937_64 random;
    std::vector<std::uint8_t> delayed;  // empty: none
    SImpairmentTally counts;
};

}  // namespace korusim
