/// RTCP of the camera (RFC 3550): writes sender reports, and checks strictly what receivers send in
/// order to find their mistakes.
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
    std::uint32_t rtpTimestamp = 0;  ///< at the same moment
    std::uint32_t packets = 0;
    std::uint32_t octets = 0;  ///< payload only
};

/// Returns a compound packet of the report and the CNAME of the sender.
[[nodiscard]] std::string BuildSenderReport(const SSenderReport& report, std::string_view cname);

/// Returns the middle 32 bits of an NTP time, which receivers repeat in the "last SR" field.
[[nodiscard]] constexpr std::uint32_t MiddleOf(std::uint64_t ntp) noexcept {
    return static_cast<std::uint32_t>(ntp >> 16);
}

enum class ERtcpFault : std::size_t {
    NotWhole,  ///< the packets do not fill the datagram exactly
    BadVersion,
    BadPadding,      ///< the padding bit, which no receiver needs here
    NoReportFirst,   ///< a compound packet must begin with a report
    NoName,          ///< a compound packet must contain a CNAME
    ReportLength,    ///< the length does not match the number of blocks
    BadDescription,  ///< SDES items exceed their chunk or have no end
    ByeLength,
    UnknownReport,    ///< "last SR" names a sender report that was never sent
    ImpossibleDelay,  ///< "delay since last SR" exceeds the time since that report
    NeverSent,        ///< a sequence number beyond the highest one sent
    OtherSource,      ///< the SSRC is not that of the receiver's first packet
    OtherName,        ///< the CNAME is not that of the previous datagram
    BehindBye,        ///< a receiver sends nothing after its BYE
    LostTooMany,      ///< more packets lost than sent up to the highest sequence number
    LostNone,         ///< a fraction lost, but no loss in the count since the previous report
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

/// The packets that the stream has sent when a datagram of its receiver arrives.
struct SSentSoFar {
    std::uint64_t ntpNow = 0;
    std::uint32_t firstSequence = 0;    ///< extended, as the next
    std::uint32_t highestSequence = 0;  ///< of the last packet, even if the network lost it
    /// True if no packet was duplicated or delayed. Such packets hide losses from the receiver's
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

/// Checks the RTCP packets of one stream's receiver.
class CRtcpReader {
   public:
    explicit CRtcpReader(std::uint32_t streamSsrc) : ssrc(streamSsrc) {}

    void NoteSenderReport(std::uint64_t ntp);
    /// Returns true if the datagram is a complete compound packet with a CNAME, even if the
    /// figures in its reports are wrong.
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
    std::optional<std::uint32_t> receiver;  // its SSRC, once known
    bool named = false;                     // the current datagram contains a CNAME
    bool gone = false;                      // the receiver has sent a BYE
    SRtcpTally counts;
};

}  // namespace korusim
