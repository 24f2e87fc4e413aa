#include "RtcpReporter.h"

namespace qmx::cam {
namespace {

/// Sender reports from the camera per receiver report.
constexpr unsigned reportEvery = 4;

/// Converts seconds to the unit of "delay since last SR", 1/65536 s; the low 32 bits count.
std::uint32_t DelayUnits(double seconds) noexcept {
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(seconds * 65536.0));
}

}  // namespace

std::optional<std::span<const std::uint8_t>> CRtcpReporter::Handle(const SRtcpEvent& event,
                                                                   const SReportBlock& block,
                                                                   double now) noexcept {
    if (event.kind == ERtcpEvent::Stop) {
        const std::uint32_t lastSenderReport = latest ? latest->lastSenderReport : 0;
        const std::uint32_t delay = latest ? DelayUnits(now - latest->time) : 0;
        return packets.ReportWithBye(block, lastSenderReport, delay);
    }
    latest = event;
    if (++srCount < reportEvery) return std::nullopt;
    srCount = 0;
    // No delay: the report goes out as the sender report is handled.
    return packets.Report(block, event.lastSenderReport, 0);
}

}  // namespace qmx::cam
