/// The status lines and the summary of `qmxhost stream`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "FrameChecker.h"
#include "FrameSaver.h"
#include "FrameStatistics.h"
#include "LossAdvice.h"
#include "Output.h"

namespace qmxhost {

struct SStreamSummary {
    std::string camera;
    std::string format;
    frames::SFrameTotals totals;
    std::optional<frames::SCheckTotals> check;
    std::optional<SSaveTotals> saved;
    std::string savedTo;
    bool missingByPromise = false;  ///< the missing frames are estimated from the promised rate
    hostkit::SLoss loss;            ///< during the whole stream
    std::optional<double> promisedRate;  ///< frames per second
};

class CStreamReport {
   public:
    /// With `resultsToError`, standard output is left to the frames.
    CStreamReport(bool json, bool resultsToError);
    ~CStreamReport() { EndStatusLine(); }
    CStreamReport(const CStreamReport&) = delete;
    CStreamReport& operator=(const CStreamReport&) = delete;

    /// Sets the start of the times in all lines.
    void Begin(frames::Clock::time_point now);
    /// Prints the rates since the previous status.
    void Status(frames::SFrameTotals totals, frames::Clock::time_point now);
    void Summary(const SStreamSummary& summary);
    /// Ends a line that is being rewritten, so that the next line begins at the left.
    void EndStatusLine();

   private:
    void PrintStatus(const std::string& line);

    const bool json;
    const bool resultsToError;
    const bool rewrite;
    frames::Clock::time_point started;
    frames::Clock::time_point previousLook;
    frames::SFrameTotals previous;
    std::size_t lineLength = 0;  ///< of the status line on the terminal
};

}  // namespace qmxhost
