#include "LossAdvice.h"

#include <algorithm>
#include <cmath>

#include "Diagnosis.h"
#include "NetworkHints.h"

namespace hostkit {
namespace {

constexpr double sufficientRate = 0.9;
/// With fewer than this share of the promised frames, and none of a known frame time, frames are
/// missing; before that, the start of the stream may explain it.
constexpr double clearlyTooFew = 0.5;
/// Fewer frames may follow each other regularly by chance, although others are missing.
constexpr std::uint64_t fewestRegular = 11;

std::string DoctorHint(const std::string& camera) {
    return "'qmxhost doctor " + camera + "' finds out which";
}

/// Returns true if the intervals of the frames cannot show that the camera is slow: as many frames
/// may be missing as there are.
bool Ambiguous(const frames::SFrameTotals& totals, std::optional<double> promisedRate) {
    const double promised = promisedRate.value_or(0) * frames::Seconds(totals.frameTime);
    return promised * sufficientRate > 1 && (!totals.regular || totals.frames < fewestRegular);
}

}  // namespace

bool LostHere(const SLoss& loss) {
    // Each missing frame has lost at least one datagram.
    const std::uint64_t dropped = loss.droppedDatagrams.value_or(0);
    return dropped != 0 && 2 * dropped >= loss.missing;
}

std::string DropReason(const SLoss& loss) {
    const std::uint64_t dropped = loss.droppedDatagrams.value_or(0);
    return "this system dropped " + std::to_string(dropped) +
           (dropped == 1 ? " UDP datagram" : " UDP datagrams") +
           ", of any program, because a receive buffer was full (" +
           ReceiveBufferText(loss.buffers) +
           "): " + ReceiveBufferAdvice(loss.buffers, loss.longestStall);
}

std::string LossReason(const SLoss& loss, const std::string& camera) {
    if (LostHere(loss)) return DropReason(loss);
    const std::string dropped =
        !loss.droppedDatagrams        ? "whether this system dropped datagrams is unknown"
        : *loss.droppedDatagrams == 0 ? "this system dropped no datagram"
                                      : "this system dropped fewer datagrams";
    return dropped +
           "; their packets were lost, repeated or reordered before they reached this machine, or "
           "never sent; " +
           DoctorHint(camera);
}

std::string LossPlace(const SLoss& loss) {
    if (LostHere(loss)) return "in the receive buffer here";
    return loss.droppedDatagrams ? "before this machine" : "at an unknown place";
}

void CLossWatch::Add(const SLoss& now) {
    // The drops may be counted before or after the frames that they cost.
    const bool moreMissing = now.missing > previous.missing;
    const bool changed = moreMissing || now.droppedDatagrams != previous.droppedDatagrams;
    const double stall = std::max(changed ? quiet.longestStall : 0, now.longestStall);
    quietCalls = moreMissing ? 0 : quietCalls + 1;
    if (!changed) quiet = now;
    quiet.longestStall = stall;
    previous = now;
    if (now.missing <= quiet.missing) return;
    loss = now;
    loss.missing -= quiet.missing;
    if (loss.droppedDatagrams) *loss.droppedDatagrams -= quiet.droppedDatagrams.value_or(0);
    loss.longestStall = stall;
}

std::uint64_t MissingFrames(const frames::SFrameTotals& totals, std::optional<double> promisedRate,
                            double seconds) {
    constexpr double fewest = 5;
    const bool known = totals.frameTime > frames::Clock::duration::zero();
    if (known && !Ambiguous(totals, promisedRate)) return totals.missing;
    const double expected = promisedRate.value_or(0) * seconds;
    const auto arrived = static_cast<double>(totals.frames + totals.skipped);
    if (expected < fewest || arrived == 0 || (!known && arrived >= clearlyTooFew * expected)) {
        return totals.missing;
    }
    return static_cast<std::uint64_t>(std::max(std::round(expected - arrived), 0.0));
}

bool IsSlow(const frames::SFrameTotals& totals, std::optional<double> promisedRate) {
    const double promised = promisedRate.value_or(0) * frames::Seconds(totals.frameTime);
    return promised * sufficientRate > 1 && !Ambiguous(totals, promisedRate);
}

std::string SilenceReason(const SSilence& silence, const std::string& camera) {
    // Other programs read some datagrams, too.
    constexpr std::uint64_t few = 20;
    if (silence.controlLost) {
        return "the camera closed its control connection; start the stream again";
    }
    if (silence.unread) {
        return "datagrams arrive, but are no longer read: an empty datagram has ended reception; "
               "start the stream again";
    }
    if (!silence.datagrams || *silence.datagrams >= few) {
        return "packets are lost, repeated or out of order, so that no frame is complete, or the "
               "camera does not send; " +
               DoctorHint(camera);
    }
    if (silence.anyFrame) {
        return "no UDP arrives any more; is the camera still on and connected?";
    }
    return "no UDP arrives; does a firewall block it? 'qmxhost doctor " + camera +
           "' finds out where; if on this machine, " + platform::FirewallHint();
}

}  // namespace hostkit
