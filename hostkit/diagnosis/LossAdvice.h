/// Why a stream misses frames or has fallen silent, in sentences that all host programs use. Pure:
/// uses no network and no clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "FrameStatistics.h"
#include "NetworkCounters.h"

namespace hostkit {

/// Missing frames, and what this system counted while they went missing.
struct SLoss {
    std::uint64_t missing = 0;                      ///< frames, estimated
    std::optional<std::uint64_t> droppedDatagrams;  ///< by this system, of any program
    platform::SReceiveBuffers buffers;
    double longestStall = 0;  ///< seconds in which this program did not run
};

/// Returns true if the datagrams that this system dropped explain the missing frames.
[[nodiscard]] bool LostHere(const SLoss& loss);
/// Returns why frames are missing and what to do, as the part of a sentence after a colon.
[[nodiscard]] std::string LossReason(const SLoss& loss, const std::string& camera);
/// Returns where frames were lost in few words, such as "before this machine".
[[nodiscard]] std::string LossPlace(const SLoss& loss);
/// Returns a sentence part about dropped datagrams, with the size of the buffer and what to do.
[[nodiscard]] std::string DropReason(const SLoss& loss);

/// Follows the counts of a running stream, so that an old loss does not explain a new one.
class CLossWatch {
   public:
    /// Takes in the counts since the start of the stream, regularly. `now.longestStall` is that
    /// since the previous call.
    void Add(const SLoss& now);
    /// Returns the loss that goes on or was the last one. Without a loss, `missing` is 0.
    [[nodiscard]] const SLoss& latest() const noexcept { return loss; }
    /// Returns true if frames went missing in one of the last five calls.
    [[nodiscard]] bool goesOn() const noexcept { return loss.missing != 0 && quietCalls < 5; }

   private:
    SLoss quiet;     // the counts before the present loss
    SLoss previous;  // those of the previous call
    SLoss loss;
    unsigned quietCalls = 0;  // since frames went missing
};

/// Returns the number of missing frames of a stream that lasted for this time. So few frames, or
/// so irregular ones, that their intervals show no frame time are compared with the promised rate.
[[nodiscard]] std::uint64_t MissingFrames(const frames::SFrameTotals& totals,
                                          std::optional<double> promisedRate, double seconds);
/// Returns true if the intervals between frames show a rate below the promised one.
[[nodiscard]] bool IsSlow(const frames::SFrameTotals& totals, std::optional<double> promisedRate);

/// Signs by which a silence can be explained.
struct SSilence {
    bool controlLost = false;  ///< the camera has closed its control connection
    bool unread = false;       ///< datagrams wait in this program, and nothing reads them
    bool anyFrame = false;     ///< frames came before it
    std::optional<std::uint64_t> datagrams;  ///< that programs of this system have read meanwhile
};
/// Returns why no frames arrive, and what to do.
[[nodiscard]] std::string SilenceReason(const SSilence& silence, const std::string& camera);

}  // namespace hostkit
