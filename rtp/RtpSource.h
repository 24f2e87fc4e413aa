/// Reception statistics of the stream's one source (RFC 3550 appendix A.1).
#pragma once

#include <cstdint>

namespace qmx::cam {

/// All zero between runs. Guarded by the receiver's `sourceLock`.
struct SRtpSource {
    std::uint32_t ssrc = 0;       ///< of the run's first packet; never updated
    std::uint8_t seen = 0;        ///< 1 from the run's first packet on
    std::uint16_t max_seq = 0;    ///< highest sequence number seen
    std::uint32_t cycles = 0;     ///< grows by 65536 per wrap
    std::uint32_t base_seq = 0;   ///< sequence number at which counting began
    std::uint32_t bad_seq = 0;    ///< last out-of-range sequence number plus 1, 65537 for none
    std::uint32_t probation = 0;  ///< packets in sequence needed before the source is valid
    std::uint32_t received = 0;
    std::uint32_t expected_prior = 0;  ///< expected packets as of the last RTCP event
    std::uint32_t received_prior = 0;  ///< `received`, as of the last RTCP event
};

/// Counts one packet. `firstPacket` must be true for the first packet of a run; it becomes false.
void UpdateSource(SRtpSource& source, bool& firstPacket, std::uint16_t sequence,
                  std::uint32_t ssrc) noexcept;

}  // namespace qmx::cam
