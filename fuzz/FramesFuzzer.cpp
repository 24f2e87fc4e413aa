// The packet path: datagrams through the parser, the statistics and one of the three depacketizers.
// An intact frame that follows is delivered, whatever came before.
//
// Input: 1 byte for the kind of stream, then datagrams: 1 byte flags, 1 byte for the number of
// repetitions if the flags ask for them, 2 bytes length, and the bytes. The flags correct the
// fields that mutations seldom get right.
#include <cstring>
#include <set>

#include "BigEndian.h"
#include "FrameAssembler.h"
#include "FrameLimit.h"
#include "FuzzInput.h"
#include "RtpSource.h"

// New memory of any size is filled, so that unwritten bytes are recognised in a frame. The
// sanitizer calls the function of this name.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "max_malloc_fill_size=67108864:malloc_fill_byte=190:quarantine_size_mb=16:"
           "malloc_context_size=4";
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

using namespace qmx::cam;
using fuzz::EStreamType;
using Bytes = std::span<const std::uint8_t>;

/// Whether frames may have any size up to 32 MiB. Filling a large frame takes most of the time of
/// an input.
constexpr bool large = KORU_LARGE_FRAMES;
/// The byte of new memory. No datagram contains it, so no frame may.
constexpr std::uint8_t unwritten = 190;
/// Largest datagram that the receiver accepts.
constexpr std::size_t datagramMost = 16384;
/// Most datagrams of an input and most bytes, including repeated ones, to limit its time.
constexpr std::size_t datagramsMost = 256;
constexpr std::size_t bytesMost = 131072;
/// Frames up to this size are assembled twice.
constexpr std::size_t comparedMost = 131072;

enum EFlags : std::uint8_t {
    versionTwo = 1,
    nextSequence = 2,
    sameTimestamp = 4,
    nextTimestamp = 8,
    repeated = 16,
};

std::size_t LargestFrame(EStreamType type) {
    constexpr std::size_t jpeg = 0xFFFFFF + datagramMost + jpegHeaderLengthWithRestart;
    return type == EStreamType::Mjpg ? jpeg : 0x2000000;
}

/// One run of the receiver, without socket and host.
class CRun {
   public:
    explicit CRun(EStreamType streamType)
        : type(streamType), assembler(static_cast<std::uint32_t>(streamType)) {}

    void TakeRecord(fuzz::CFuzzInput& input);
    void CheckGoodFrame();
    [[nodiscard]] bool TakesMore() const {
        return datagrams < datagramsMost && datagramBytes < bytesMost;
    }

   private:
    std::optional<Bytes> Take(const fuzz::ExactBytes& datagram);
    void Count(const SRtpPacket& packet);
    void CheckFrame(Bytes frame, const SRtpPacket& last);

    const EStreamType type;
    CFrameAssembler assembler;
    SRtpSource source;
    bool firstPacket = true;
    std::size_t datagrams = 0;
    std::size_t datagramBytes = 0;
    std::uint16_t sequence = 0;   // of the last packet
    std::uint32_t timestamp = 0;  // of the last packet
    std::set<std::uint32_t> timestamps;
    std::vector<fuzz::ExactBytes> sinceFrame;  // all datagrams after the last delivered frame
};

/// Checks what one packet may change in the sequence statistics.
void CRun::Count(const SRtpPacket& packet) {
    const SRtpSource before = source;
    const bool counting = !firstPacket && before.probation == 0;
    UpdateSource(source, firstPacket, packet.sequence, packet.ssrc);
    FUZZ_REQUIRE(!firstPacket && source.seen == 1);
    if (!counting) {
        FUZZ_REQUIRE(source.received == (source.probation == 0 ? 1 : 0));
        return;
    }
    FUZZ_REQUIRE(source.probation == 0 && source.ssrc == before.ssrc);
    const std::uint32_t highest = source.cycles + source.max_seq;
    const std::uint32_t highestBefore = before.cycles + before.max_seq;
    FUZZ_REQUIRE(highest >= source.base_seq);
    if (highest >= highestBefore && source.received >= before.received &&
        source.base_seq == before.base_seq) {
        FUZZ_REQUIRE(highest - highestBefore < 3000 && source.received - before.received <= 1);
        return;
    }
    // Figures decrease only at a restart: two packets in sequence, far from all before.
    FUZZ_REQUIRE(before.bad_seq == packet.sequence);
    FUZZ_REQUIRE(source.base_seq == packet.sequence && highest == packet.sequence);
    FUZZ_REQUIRE(source.received == 1 && source.received_prior == 0 && source.expected_prior == 0);
}

void CRun::CheckFrame(Bytes frame, const SRtpPacket& last) {
    FUZZ_REQUIRE(last.marker && frame.size() <= LargestFrame(type));
    if (type == EStreamType::Mjls) {
        FUZZ_REQUIRE(frame.size() >= 8 && ReadBig32(&frame[4]) == 0xFFD8FFF7);
        FUZZ_REQUIRE(std::equal(last.payload.rbegin(), last.payload.rend(), frame.rbegin()));
    }
    if (type == EStreamType::Mjpg) {
        FUZZ_REQUIRE(frame.size() >= jpegHeaderLength && ReadBig16(frame.data()) == 0xFFD8);
    } else if (!frame.empty()) {
        FUZZ_REQUIRE(std::memchr(frame.data(), unwritten, frame.size()) == nullptr);
    }
    // A coded frame depends only on its own packets, so a new depacketizer assembles the same one.
    // In a raw frame, lines that are missing keep their old bytes.
    if (type == EStreamType::Zraw || frame.size() > comparedMost) return;
    CFrameAssembler fresh(static_cast<std::uint32_t>(type));
    for (std::size_t i = 0; i < sinceFrame.size(); ++i) {
        const auto packet = ParseRtpPacket(sinceFrame[i]);
        const auto same = packet ? fresh.Add(*packet) : std::nullopt;
        FUZZ_REQUIRE(same.has_value() == (i + 1 == sinceFrame.size()));
        if (same) FUZZ_REQUIRE(std::equal(same->begin(), same->end(), frame.begin(), frame.end()));
    }
}

std::optional<Bytes> CRun::Take(const fuzz::ExactBytes& datagram) {
    ++datagrams;
    datagramBytes += datagram.size();
    sinceFrame.push_back(datagram);
    const fuzz::ExactBytes& bytes = sinceFrame.back();
    const auto packet = ParseRtpPacket(bytes);
    if (!packet) return std::nullopt;
    FUZZ_REQUIRE(packet->payload.data() + packet->payload.size() == bytes.data() + bytes.size());
    sequence = packet->sequence;
    timestamp = packet->timestamp;
    timestamps.insert(timestamp);
    Count(*packet);
    const auto frame = assembler.Add(*packet);
    if (!frame) return std::nullopt;
    CheckFrame(*frame, *packet);
    sinceFrame.clear();
    return frame;
}

void CRun::TakeRecord(fuzz::CFuzzInput& input) {
    const auto flags = input.Take<std::uint8_t>();
    const std::size_t more = (flags & repeated) != 0 ? input.Take<std::uint8_t>() : 0;
    const std::size_t length = input.Take<std::uint16_t>() % (datagramMost + 1);
    fuzz::ExactBytes datagram = fuzz::ExactCopy(input.TakeBytes(length));
    std::replace(datagram.begin(), datagram.end(), unwritten, std::uint8_t{unwritten + 1});
    for (std::size_t i = 0; i <= more && TakesMore(); ++i) {
        if (datagram.size() >= rtpDatagramShortest) {
            if ((flags & versionTwo) != 0) datagram[0] = (datagram[0] & 0x3F) | 0x80;
            if ((flags & nextSequence) != 0) WriteBig16(&datagram[2], sequence + 1u);
            if ((flags & sameTimestamp) != 0) WriteBig32(&datagram[4], timestamp);
            if ((flags & nextTimestamp) != 0) WriteBig32(&datagram[4], timestamp + 1);
        }
        if (!large) fuzz::KeepFrameSmall(datagram, type);
        (void)Take(datagram);
    }
}

/// The payloads of a frame of two packets, and the delivered frame.
struct SGoodFrame {
    fuzz::ExactBytes first;
    fuzz::ExactBytes second;
    fuzz::ExactBytes whole;  // without the headers of a JPEG
};

SGoodFrame GoodFrame(EStreamType type) {
    switch (type) {
        case EStreamType::Zraw:  // two lines of 4 pixels
            return {{0, 0, 0, 4, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8},
                    {0, 0, 0, 4, 0, 1, 0, 0, 9, 10, 11, 12, 13, 14, 15, 16},
                    {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};
        case EStreamType::Mjls:
            return {{1, 2, 3, 4, 0xFF, 0xD8, 0xFF, 0xF7, 5},
                    {6, 7, 8, 9, 10, 11, 12, 13},
                    {1, 2, 3, 4, 0xFF, 0xD8, 0xFF, 0xF7, 5, 6, 7, 8, 9, 10, 11, 12, 13}};
        default:  // fragments at 0 and at 3
            return {{0, 0, 0, 0, 1, 50, 2, 2, 1, 2, 3},
                    {0, 0, 0, 3, 1, 50, 2, 2, 4, 5},
                    {1, 2, 3, 4, 5}};
    }
}

fuzz::ExactBytes MakeDatagram(bool marker, std::uint16_t sequence, std::uint32_t timestamp,
                              const fuzz::ExactBytes& payload) {
    constexpr std::size_t header = 12;
    fuzz::ExactBytes datagram(header + payload.size());
    datagram[0] = 0x80;
    datagram[1] = marker ? 0xE0 : 0x60;
    WriteBig16(&datagram[2], sequence);
    WriteBig32(&datagram[4], timestamp);
    std::copy(payload.begin(), payload.end(), &datagram[header]);
    return datagram;
}

void CRun::CheckGoodFrame() {
    std::uint32_t unused = timestamp + 1;
    while (timestamps.contains(unused)) ++unused;
    const SGoodFrame good = GoodFrame(type);
    const auto start = static_cast<std::uint16_t>(sequence + 7);
    FUZZ_REQUIRE(!Take(MakeDatagram(false, start, unused, good.first)));
    const auto frame =
        Take(MakeDatagram(true, static_cast<std::uint16_t>(start + 1), unused, good.second));
    FUZZ_REQUIRE(frame && frame->size() >= good.whole.size());
    const Bytes data = frame->subspan(type == EStreamType::Mjpg ? jpegHeaderLength : 0);
    FUZZ_REQUIRE(std::equal(data.begin(), data.end(), good.whole.begin(), good.whole.end()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::CFuzzInput input(data, size);
    const auto kind = input.Take<std::uint8_t>();
    CRun run(static_cast<EStreamType>(1 + kind % 3));
    while (!input.empty() && run.TakesMore()) run.TakeRecord(input);
    run.CheckGoodFrame();
    return 0;
}
