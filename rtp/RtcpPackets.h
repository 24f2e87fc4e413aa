/// RTCP as bytes (RFC 3550 section 6): what a pure receiver of one stream sends, and the one thing
/// that it reads. Pure.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "RtpSource.h"

namespace qmx::cam {

/// Walks a compound packet and gives its sender reports one by one. A sub-packet that runs past the
/// datagram ends the walk; one of another version or type is skipped by its length, and so is a
/// sender report too short for its NTP time.
class CSenderReportWalk {
   public:
    explicit CSenderReportWalk(std::span<const std::uint8_t> compound) noexcept
        : datagram(compound) {}
    /// The middle 32 bits of the next report's NTP time, bytes in wire order; nothing at the end.
    [[nodiscard]] std::optional<std::uint32_t> Next() noexcept;

   private:
    std::span<const std::uint8_t> datagram;
    std::size_t offset = 0;
};

/// A 32-bit SSRC as it lies in the packets.
using SsrcBytes = std::array<std::uint8_t, 4>;

/// Loss figures of one report block.
struct SLossFigures {
    std::uint32_t ssrc;
    std::uint8_t fractionLost;     ///< of 256, since the figures were last taken
    std::uint32_t cumulativeLost;  ///< the low 24 bits count
    std::uint32_t extendedHighestSeq;
};

/// Takes the figures (RFC 3550 appendix A.3, with no clamping) and moves the source's `prior`
/// counters on, so that the next fraction covers the time from here.
[[nodiscard]] SLossFigures TakeLossFigures(SRtpSource& source) noexcept;

/// The packets of one run, composed once; a report only fills in its block.
class CRtcpComposer {
   public:
    /// `name` is the CNAME, at most 255 bytes.
    CRtcpComposer(const SsrcBytes& ssrc, std::string_view name) noexcept;

    /// The packet that opens a run: an empty receiver report and the name.
    [[nodiscard]] std::span<const std::uint8_t> Opening() const noexcept {
        return {opening.data(), openingSize};
    }
    /// A report on the source: a receiver report with one block, and the name. `lastSenderReport`
    /// in wire order, `delay` in units of 1/65536 s.
    [[nodiscard]] std::span<const std::uint8_t> Report(const SLossFigures& figures,
                                                       std::uint32_t lastSenderReport,
                                                       std::uint32_t delay) noexcept;
    /// The same with a BYE behind it.
    [[nodiscard]] std::span<const std::uint8_t> LastReport(const SLossFigures& figures,
                                                           std::uint32_t lastSenderReport,
                                                           std::uint32_t delay) noexcept;

   private:
    /// More than the longest name needs.
    static constexpr std::size_t bufferSize = 512;

    std::array<std::uint8_t, bufferSize> opening{};
    std::array<std::uint8_t, bufferSize> report{};
    std::size_t openingSize;
    std::size_t reportSize;
};

}  // namespace qmx::cam
