#include "StreamAdvice.h"

#include <cmath>

#include "NetworkHints.h"
#include "StreamDiagnosis.h"

namespace qmxhost {
namespace {

constexpr double sufficientRate = 0.9;
/// With fewer than this share of the promised frames, and none of a known frame time, frames are
/// missing; before that, the start of the stream may explain it.
constexpr double clearlyTooFew = 0.5;

std::string Frames(std::uint64_t number) {
    return std::to_string(number) + (number == 1 ? " frame" : " frames");
}

std::string DoctorHint(const std::string& camera) {
    return "'qmxhost doctor " + camera + "' finds out which";
}

/// Explains missing frames by the datagrams that this system has dropped, if it counts them.
std::string MissingMessage(const SStreamSummary& summary) {
    const std::uint64_t missing = summary.totals.missing;
    std::string text = "about " + Frames(missing) + " of camera " + summary.camera +
                       (missing == 1 ? " is" : " are") + " missing (estimated from the " +
                       (summary.totals.frameTime > frames::Clock::duration::zero()
                            ? "gaps)"
                            : "frame rate that it promises)");
    if (summary.droppedDatagrams.value_or(0) != 0) return text;
    text += summary.droppedDatagrams ? ", and this system dropped no datagram"
                                     : "; whether this system dropped datagrams is unknown";
    return text + ": their packets were lost, repeated or reordered on the way, or never sent; " +
           DoctorHint(summary.camera);
}

std::string DropMessage(const SStreamSummary& summary) {
    return "this system dropped " + std::to_string(*summary.droppedDatagrams) +
           " UDP datagrams, of any program, while camera " + summary.camera +
           " streamed, because a receive buffer was full (" + ReceiveBufferText(summary.buffers) +
           "): " + ReceiveBufferAdvice(summary.buffers, summary.longestStall);
}

void AddSaveMessages(const SStreamSummary& summary, std::vector<std::string>& messages) {
    const std::string from = " of camera " + summary.camera + " ";
    if (const std::uint64_t notKept = summary.totals.notKept; notKept != 0) {
        messages.push_back(
            Frames(notKept) + from +
            "came faster than they could be checked or saved; request fewer with --rate");
    }
    if (summary.saved && summary.saved->undecodable != 0) {
        messages.push_back(
            Frames(summary.saved->undecodable) + from +
            "could not be decoded and saved as a picture; use --as native to save them unchanged");
    }
    if (summary.saved && summary.saved->empty != 0) {
        messages.push_back(
            Frames(summary.saved->empty) + from +
            "were empty, so that there was no picture to save; try another size, listed by "
            "'qmxhost formats " +
            summary.camera + "'");
    }
    if (summary.check && summary.check->damaged != 0) {
        messages.push_back(
            "--check found " + std::to_string(summary.check->damaged) +
            " damaged frames from camera " + summary.camera +
            "; is it a korusim camera? Other cameras put no checksum into their pictures, and "
            "korusim puts none into JPEG pictures smaller than about 160x64");
    }
}

}  // namespace

std::uint64_t MissingFrames(const frames::SFrameTotals& totals, std::optional<double> promisedRate,
                            double seconds) {
    constexpr double fewest = 5;
    if (totals.frameTime > frames::Clock::duration::zero()) return totals.missing;
    const double expected = promisedRate.value_or(0) * seconds;
    const auto arrived = static_cast<double>(totals.frames + totals.skipped);
    if (expected < fewest || arrived == 0 || arrived >= clearlyTooFew * expected) {
        return totals.missing;
    }
    return static_cast<std::uint64_t>(std::round(expected - arrived));
}

std::vector<std::string> LossMessages(const SStreamSummary& summary) {
    std::vector<std::string> messages;
    if (summary.droppedDatagrams.value_or(0) != 0) messages.push_back(DropMessage(summary));
    if (summary.totals.missing != 0) messages.push_back(MissingMessage(summary));
    const double frameTime = frames::Seconds(summary.totals.frameTime);
    if (summary.promisedRate && frameTime * *summary.promisedRate * sufficientRate > 1) {
        messages.push_back(
            "camera " + summary.camera + " sends about " + Decimal(1 / frameTime, 1) +
            " frames/s instead of the " + Decimal(*summary.promisedRate, 1) +
            " that it promises; 'qmxhost doctor " + summary.camera + "' examines it");
    }
    AddSaveMessages(summary, messages);
    return messages;
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

}  // namespace qmxhost
