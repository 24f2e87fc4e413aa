#include "StreamAdvice.h"

#include "StreamDiagnosis.h"

namespace qmxhost {
namespace {

std::string Frames(std::uint64_t number) {
    return std::to_string(number) + (number == 1 ? " frame" : " frames");
}

std::string MissingMessage(const SStreamSummary& summary) {
    const std::uint64_t missing = summary.loss.missing;
    return "about " + Frames(missing) + " of camera " + summary.camera +
           (missing == 1 ? " is" : " are") + " missing (estimated from the " +
           (summary.missingByPromise ? "frame rate that it promises" : "gaps") +
           "): " + LossReason(summary.loss, summary.camera);
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

std::vector<std::string> LossMessages(const SStreamSummary& summary) {
    std::vector<std::string> messages;
    if (summary.loss.missing != 0) {
        messages.push_back(MissingMessage(summary));
    } else if (summary.loss.droppedDatagrams.value_or(0) != 0) {
        messages.push_back(DropReason(summary.loss));
    }
    if (IsSlow(summary.totals, summary.promisedRate)) {
        messages.push_back("camera " + summary.camera + " sends about " +
                           Decimal(1 / frames::Seconds(summary.totals.frameTime), 1) +
                           " frames/s instead of the " + Decimal(*summary.promisedRate, 1) +
                           " that it promises; 'qmxhost doctor " + summary.camera +
                           "' examines it");
    }
    AddSaveMessages(summary, messages);
    return messages;
}

}  // namespace qmxhost
