/// RTCP packets (RFC 3550 section 6) of a receiver of one stream: those that it sends, and the one
/// field of a sender report that it reads.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "RtpSource.h"

namespace qmx::cam {

/// Finds the sender reports in a compound packet. A packet that extends past the datagram ends the
/// search; one of another version or type is skipped by its length, and so is a sender report too
/// short for its NTP timestamp.
class CSenderReportReader {
   public:
    explicit CSenderReportReader(std::span<const std::uint8_t> compound) noexcept
        : datagram(compound) {}
    /// Returns the middle 32 bits of the next report's NTP timestamp, with the bytes in wire order;
    /// nothing when there is no further report.
    [[nodiscard]] std::optional<std::uint32_t> Next() noexcept;

   private:
    std::span<const std::uint8_t> datagram;
    std::size_t offset = 0;
};

/// An SSRC as it is written into the packets.
using SsrcBytes = std::array<std::uint8_t, 4>;

/// The loss figures of one report block (RFC 3550 section 6.4.1).
struct SReportBlock {
    std::uint32_t ssrc;
    std::uint8_t fractionLost;     ///< in 1/256, since the previous update
    std::uint32_t cumulativeLost;  ///< in the low 24 bits
    std::uint32_t extendedHighestSeq;
};

/// Computes the figures (RFC 3550 appendix A.3, without clamping) and updates the source's `prior`
/// counters, so that the next fraction covers the interval from now on.
[[nodiscard]] SReportBlock UpdateReportBlock(SRtpSource& source) noexcept;

/// The packets of one run, written once; a report only fills in its report block.
class CRtcpPackets {
   public:
    /// `name` is the CNAME, at most 255 bytes.
    CRtcpPackets(const SsrcBytes& ssrc, std::string_view name) noexcept;

    /// The first packet of a run: an empty receiver report and the SDES packet.
    [[nodiscard]] std::span<const std::uint8_t> InitialReport() const noexcept {
        return {initialReport.data(), initialSize};
    }
    /// A receiver report with one block, and the SDES packet. `lastSenderReport` is in wire order,
    /// `delay` in units of 1/65536 s. Valid until the next call.
    [[nodiscard]] std::span<const std::uint8_t> Report(const SReportBlock& figures,
                                                       std::uint32_t lastSenderReport,
                                                       std::uint32_t delay) noexcept;
    /// The same, followed by a BYE packet.
    [[nodiscard]] std::span<const std::uint8_t> ReportWithBye(const SReportBlock& figures,
                                                              std::uint32_t lastSenderReport,
                                                              std::uint32_t delay) noexcept;

   private:
    /// More than the longest name requires.
    static constexpr std::size_t bufferSize = 512;

    std::array<std::uint8_t, bufferSize> initialReport{};
    std::array<std::uint8_t, bufferSize> report{};
    std::size_t initialSize;
    std::size_t reportSize;
};

}  // namespace qmx::cam
