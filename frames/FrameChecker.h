/// Proves that delivered frames are the sent ones, from the stamp that the simulator puts into each
/// picture.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "qmx.h"

namespace frames {

struct SCheckTotals {
    std::uint64_t good = 0;
    std::uint64_t damaged = 0;    ///< checksum or coding wrong, or no stamp at all
    std::uint64_t missing = 0;    ///< sent, by the numbers, and never delivered
    std::uint64_t repeated = 0;   ///< the number of the good frame before it
    std::uint64_t backwards = 0;  ///< a lower number than the good frame before it
};

/// Sees the frames in the order of their arrival, though not necessarily all of them.
class CFrameChecker {
   public:
    /// Checks frames of a type that `CanCheck`.
    explicit CFrameChecker(const qmx::SGuid& pixelType) : type(pixelType) {}
    [[nodiscard]] static bool CanCheck(const qmx::SGuid& pixelType);

    /// Decodes coded frames, which takes some milliseconds. `arrival` counts delivered frames, so
    /// that one which was delivered but not shown to the checker, or was damaged, doesn't pass for
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
