#include "RtpSource.h"

namespace qmx::cam {
namespace {

// RFC 3550 appendix A.1.
constexpr std::uint32_t maxDropout = 3000;
constexpr std::uint32_t maxMisorder = 100;
constexpr std::uint32_t minSequential = 2;
constexpr std::uint32_t rtpSeqMod = 65536;
constexpr std::uint32_t noBadSeq = rtpSeqMod + 1;

void InitSequence(SRtpSource& source, std::uint16_t sequence) noexcept {
    source.base_seq = sequence;
    source.max_seq = sequence;
    source.bad_seq = noBadSeq;
    source.cycles = 0;
    source.received = 0;
    source.received_prior = 0;
    source.expected_prior = 0;
}

void BeginProbation(SRtpSource& source, std::uint16_t sequence, std::uint32_t ssrc) noexcept {
    source.ssrc = ssrc;
    source.seen = 1;
    InitSequence(source, sequence);
    source.max_seq = static_cast<std::uint16_t>(sequence - 1);
    source.probation = minSequential;
}

void CountOnProbation(SRtpSource& source, std::uint16_t sequence) noexcept {
    // The successor does not wrap, so that probation never ends at the wrap of the sequence
    // numbers.
    const bool inSequence = sequence == source.max_seq + 1u;
    source.max_seq = sequence;
    if (!inSequence) {
        source.probation = minSequential - 1;
        return;
    }
    if (--source.probation == 0) {
        InitSequence(source, sequence);
        source.received = 1;
    }
}

}  // namespace

// Differs from the function in the RFC: the first packet of a run does not count towards probation,
// so that it takes three packets in sequence to end it. Keep it so: the figures in the reports
// depend on which packets count.
void UpdateSource(SRtpSource& source, bool& firstPacket, std::uint16_t sequence,
                  std::uint32_t ssrc) noexcept {
    if (firstPacket) {
        BeginProbation(source, sequence, ssrc);
        firstPacket = false;
        return;
    }
    if (source.probation != 0) {
        CountOnProbation(source, sequence);
        return;
    }
    const auto udelta = static_cast<std::uint16_t>(sequence - source.max_seq);
    if (udelta < maxDropout) {  // in order, possibly with a gap
        if (sequence < source.max_seq) source.cycles += rtpSeqMod;
        source.max_seq = sequence;
    } else if (udelta <= rtpSeqMod - maxMisorder) {  // a large jump
        if (sequence != source.bad_seq) {
            source.bad_seq = (sequence + 1u) & (rtpSeqMod - 1);
            return;
        }
        InitSequence(source, sequence);  // two in a row: the sender has restarted
    }                                    // else a duplicate or a late packet
    ++source.received;
}

}  // namespace qmx::cam
