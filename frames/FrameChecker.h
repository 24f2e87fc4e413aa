/// Proves by the stamp that the simulator puts into each picture that the delivered frames are the
/// ones that were sent.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "qmx.h"

namespace frames {

struct SCheckTotals {
    std::uint64_t good = 0;
    std::uint64_t damaged = 0;    ///< wrong checksum, undecodable, or without a stamp
    std::uint64_t missing = 0;    ///< sent, by their numbers, but not delivered
    std::uint64_t repeated = 0;   ///< with the number of the previous good frame
    std::uint64_t backwards = 0;  ///< with a lower number than the previous good frame
};

/// Checks frames in the order of their arrival, but not necessarily all of them.
class CFrameChecker {
   public:
    /// Checks frames of a type for which `CanCheck` returns true.
    explicit CFrameChecker(const qmx::SGuid& pixelType) : type(pixelType) {}
    [[nodiscard]] static bool CanCheck(const qmx::SGuid& pixelType);

    /// Checks a frame. Decoding a coded frame takes some milliseconds. `arrival` counts delivered
    /// frames, so that a frame that was damaged, or delivered but not checked, does not count as
    /// missing.
    void Check(std::span<const std::uint8_t> frame, std::uint64_t arrival);
    [[nodiscard]] const SCheckTotals& totals() const noexcept { return sums; }

   private:
    struct SGoodFrame {
        std::uint32_t number;
        std::uint64_t arrival;
    };
    const qmx::SGuid type;
    SCheckTotals sums;
    std::optional<SGoodFrame> last;
};

}  // namespace frames
