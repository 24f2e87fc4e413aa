/// What `qmxhost stream` tells while it runs and at its end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "FrameChecker.h"
#include "FrameSaver.h"
#include "FrameStatistics.h"
#include "Output.h"

namespace qmxhost {

struct SStreamSummary {
    std::string camera;
    std::string format;
    frames::SFrameTotals totals;
    std::optional<frames::SCheckTotals> check;
    std::optional<SSaveTotals> saved;
    std::string savedTo;
    std::optional<std::uint64_t> droppedDatagrams;  ///< by this system, where it counts them
};

class CStreamReport {
   public:
    /// `resultsToError` keeps standard output free for the frames themselves.
    CStreamReport(bool json, bool resultsToError);
    ~CStreamReport() { EndStatusLine(); }
    CStreamReport(const CStreamReport&) = delete;
    CStreamReport& operator=(const CStreamReport&) = delete;

    /// The time of all lines counts from here.
    void Begin(frames::Clock::time_point now);
    /// Rates are those since the status before.
    void Status(frames::SFrameTotals totals, frames::Clock::time_point now);
    void Summary(const SStreamSummary& summary);
    /// Ends a line that is being rewritten, so that other lines start at the left.
    void EndStatusLine();

   private:
    void PrintStatus(const std::string& line);

    const bool json;
    const bool resultsToError;
    const bool rewrite;
    frames::Clock::time_point started;
    frames::Clock::time_point previousLook;
    frames::SFrameTotals previous;
    std::size_t lineLength = 0;  ///< of the status line that stands on the terminal
};

}  // namespace qmxhost
