/// RTCP of the camera side (RFC 3550): sender reports out, and a strict reading of what receivers
/// send, which is there to find a receiver's mistakes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace korusim {

struct SSenderReport {
    std::uint32_t ssrc = 0;
    std::uint64_t ntp = 0;           ///< seconds since 1900, with 32 bits of fraction
    std::uint32_t rtpTimestamp = 0;  ///< of the same moment
    std::uint32_t packets = 0;
    std::uint32_t octets = 0;  ///< payload only
};

/// A compound of the report and the sender's name.
[[nodiscard]] std::string BuildSenderReport(const SSenderReport& report, std::string_view cname);

/// The part of an NTP time that receivers echo.
[[nodiscard]] constexpr std::uint32_t MiddleOf(std::uint64_t ntp) noexcept {
    return static_cast<std::uint32_t>(ntp >> 16);
}

enum class ERtcpFault : std::size_t {
    NotWhole,  ///< sub-packets don't fill the datagram exactly
    BadVersion,
    BadPadding,      ///< the padding bit, which nobody here has a use for
    NoReportFirst,   ///< a compound begins with a report
    NoName,          ///< a compound holds a CNAME
    ReportLength,    ///< the length word doesn't fit the number of blocks
    BadDescription,  ///< SDES items run past their end or aren't closed
    ByeLength,
    UnknownReport,    ///< "last SR" names a sender report that was never sent
    ImpossibleDelay,  ///< "delay since last SR" is longer than that was ago
    NeverSent,        ///< a sequence number beyond the highest one sent
    OtherSource,      ///< the receiver's SSRC isn't that of its first packet
    OtherName,        ///< the CNAME isn't that of the datagram before
    BehindBye,        ///< a receiver that has said goodbye is silent
    LostTooMany,      ///< more lost than was sent up to the highest sequence number
    LostNone,         ///< a fraction lost, and none lost in all since the report before
    Count,
};
[[nodiscard]] std::string_view TextOf(ERtcpFault fault);

/// One report block (RFC 3550, 6.4.1).
struct SReportBlock {
    std::uint32_t ssrc = 0;
    std::uint8_t fractionLost = 0;
    std::int32_t cumulativeLost = 0;
    std::uint32_t highestSequence = 0;
    std::uint32_t jitter = 0;
    std::uint32_t lastReport = 0;
    std::uint32_t delay = 0;  ///< in 1/65536 s
};

/// What the stream has sent when a datagram of its receiver comes.
struct SSentSoFar {
    std::uint64_t ntpNow = 0;
    std::uint32_t firstSequence = 0;    ///< extended, as the next
    std::uint32_t highestSequence = 0;  ///< of the last packet, also when the network lost it
    /// Nothing was doubled or delayed. What comes twice or late hides a loss from the receiver's
    /// count, so that fraction and count can then disagree without a mistake.
    bool inOrder = true;
};

struct SRtcpTally {
    std::uint64_t datagrams = 0;
    std::uint64_t reports = 0;
    std::uint64_t blocks = 0;       ///< about our stream
    std::uint64_t otherBlocks = 0;  ///< about another source
    std::uint64_t byes = 0;
    std::array<std::uint64_t, static_cast<std::size_t>(ERtcpFault::Count)> faults{};
    std::optional<SReportBlock> last;  ///< latest block about our stream
    std::string name;                  ///< latest CNAME
};

/// Reads the RTCP of one stream's receiver.
class CRtcpReader {
   public:
    explicit CRtcpReader(std::uint32_t streamSsrc) : ssrc(streamSsrc) {}

    void NoteSenderReport(std::uint64_t ntp);
    /// True when the datagram is a whole compound packet with a name, whatever its reports claim.
    bool Read(std::span<const std::uint8_t> datagram, const SSentSoFar& sent);
    [[nodiscard]] const SRtcpTally& tally() const noexcept { return counts; }

   private:
    [[nodiscard]] bool Walk(std::span<const std::uint8_t> datagram, const SSentSoFar& sent);
    [[nodiscard]] bool ReadPacket(std::span<const std::uint8_t> packet, const SSentSoFar& sent);
    [[nodiscard]] bool ReadReport(std::span<const std::uint8_t> packet, std::size_t infoBytes,
                                  const SSentSoFar& sent);
    void CheckBlock(const SReportBlock& block, const SSentSoFar& sent);
    void CheckLoss(const SReportBlock& block, const SSentSoFar& sent);
    void CheckEcho(const SReportBlock& block, const SSentSoFar& sent);
    [[nodiscard]] bool ReadDescription(std::span<const std::uint8_t> packet);
    [[nodiscard]] bool ReadBye(std::span<const std::uint8_t> packet);
    void CheckSource(std::uint32_t source);
    void TakeName(std::string_view name);
    bool Fail(ERtcpFault fault);

    std::uint32_t ssrc;
    std::deque<std::uint32_t> sentReports;  // middle words, latest last
    std::optional<std::uint32_t> receiver;  // its SSRC, once it has told one
    bool named = false;                     // the datagram in hand holds a CNAME
    bool gone = false;                      // the receiver has said goodbye
    SRtcpTally counts;
};

}  // namespace korusim
