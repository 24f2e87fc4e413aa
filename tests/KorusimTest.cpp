// The camera simulator's own rules, without a network. The other tests trust it as their camera.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

#include "FrameDecoders.h"
#include "FrameStamp.h"
#include "JpegEncoder.h"
#include "JpegHeaders.h"
#include "JpegPacketizer.h"
#include "MjlsPacketizer.h"
#include "RawPacketizer.h"
#include "Rtcp.h"
#include "Scene.h"

namespace {

using namespace korusim;
using Bytes = std::vector<std::uint8_t>;

// 0x10001 is the second round of the sequence number; what follows in each packet is written out.
constexpr SPacketFields fields{96, 0x10001, 0x01020304, 0xA0B0C0D0};

template <class Packetizer>
std::vector<Bytes> Cut(const Packetizer& packetizer, const Bytes& frame) {
    std::vector<Bytes> packets;
    for (std::size_t i = 0; i < packetizer.CountPackets(frame); ++i) {
        packets.emplace_back(packetizer.maxPacketBytes());
        packets.back().resize(packetizer.Build(frame, i, fields, packets.back()));
    }
    return packets;
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
Bytes Part(const Bytes& bytes, std::size_t from, std::size_t to) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from),
            bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

/// Version 2, payload type 96 with or without the marker, number 1, time, SSRC.
Bytes Rtp(bool marker) {
    return {
        0x80, static_cast<std::uint8_t>(marker ? 0xE0 : 0x60), 0, 1, 1, 2, 3, 4, 0xA0, 0xB0, 0xC0,
        0xD0};
}

TEST(Korusim, CutsFramesIntoPackets) {
    Bytes data(300);
    std::iota(data.begin(), data.end(), std::uint8_t{0});

    // 8 by 3 pixels, two lines to a packet: the sequence number's high half; for each line its
    // 8 pixels, its number, and whether another follows.
    EXPECT_EQ(Cut(CRawPacketizer({8, 3}, 60), Part(data, 0, 48)),
              (std::vector<Bytes>{Rtp(false) + Bytes{0, 1, 0, 8, 0, 0, 0x80, 0, 0, 8, 0, 1, 0, 0} +
                                      Part(data, 0, 32),
                                  Rtp(true) + Bytes{0, 1, 0, 8, 0, 2, 0, 0} + Part(data, 32, 48)}));

    // Three equal pieces, none near the 8 bytes that some receivers want at least.
    EXPECT_EQ(Cut(CMjlsPacketizer(112), Part(data, 0, 201)),
              (std::vector<Bytes>{Rtp(false) + Part(data, 0, 67), Rtp(false) + Part(data, 67, 134),
                                  Rtp(true) + Part(data, 134, 201)}));

    // Offset, Type 0, Q 50, width and height over 8.
    EXPECT_EQ(
        Cut(CJpegPacketizer({640, 480}, {50, 0, ESubsampling::Chroma422}, 220), Part(data, 0, 201)),
        (std::vector<Bytes>{
            Rtp(false) + Bytes{0, 0, 0, 0, 0, 50, 80, 60} + Part(data, 0, 200),
            Rtp(true) + Bytes{0, 0, 0, 200, 0, 50, 80, 60} + Part(data, 200, 201)}));

    // Type 1 with restart markers each 258 units; the tables' 128 bytes are in the first packet.
    const Bytes main = {0x41, 255, 255, 1, 1, 2, 0xFF, 0xFF};
    const JpegTables tables = MakeJpegTables(255);
    EXPECT_EQ(Cut(CJpegPacketizer({2040, 8}, {255, 258, ESubsampling::Chroma420}, 192), data),
              (std::vector<Bytes>{Rtp(false) + Bytes{0, 0, 0, 0} + main + Bytes{0, 0, 0, 128} +
                                      Bytes(tables.begin(), tables.end()) + Part(data, 0, 36),
                                  Rtp(false) + Bytes{0, 0, 0, 36} + main + Part(data, 36, 204),
                                  Rtp(true) + Bytes{0, 0, 0, 204} + main + Part(data, 204, 300)}));
}

/// A receiver report on stream 0x0A0B0C0D from source 0x01020304 with the name "n": what the tests
/// vary are its last bytes of SSRC and highest sequence number, fraction lost, and number lost.
Bytes Report(std::uint8_t source, std::uint8_t fraction, std::uint8_t lost, std::uint8_t highest,
             const char* name = "n") {
    const Bytes chunk = {0x81, 202, 0, 2, 1, 2, 3, source, 1, 1, static_cast<std::uint8_t>(*name),
                         0};
    return Bytes{0x81, 201,      0, 7, 1,    2, 3, source, 0x0A,    0x0B, 0x0C,
                 0x0D, fraction, 0, 0, lost, 0, 0, 1,      highest, 0,    0,
                 0,    0,        0, 0, 0,    0, 0, 0,      0,       0} +
           chunk;
}
const Bytes bye = {0x81, 203, 0, 1, 1, 2, 3, 4};
const Bytes otherBye = {0x81, 203, 0, 1, 1, 2, 3, 5};

// Packets 0x100 to 0x120 were sent. A receiver's mistakes are counted, and nothing else is.
TEST(Korusim, FindsAReceiversMistakes) {
    const Bytes good = Report(4, 0, 2, 0x20);
    struct {
        const char* name;
        std::vector<Bytes> datagrams;
        std::vector<ERtcpFault> faults;
        bool lastIsGood = true;  // as a sign of life
    } const cases[] = {
        {"good ones", {good, Report(4, 255, 3, 0x20), Report(4, 0, 3, 0x20) + bye}, {}},
        {"never sent", {Report(4, 0, 0, 0x21)}, {ERtcpFault::NeverSent}},
        {"more than all lost", {Report(4, 1, 34, 0x20)}, {ERtcpFault::LostTooMany}},
        {"fraction of none", {Report(4, 1, 0, 0x20)}, {ERtcpFault::LostNone}},
        {"fraction of none since", {good, Report(4, 1, 2, 0x20)}, {ERtcpFault::LostNone}},
        {"other source",
         {good, Report(5, 0, 2, 0x20)},
         {ERtcpFault::OtherSource, ERtcpFault::OtherSource}},
        {"other name", {good, Report(4, 0, 2, 0x20, "m")}, {ERtcpFault::OtherName}},
        {"another's goodbye", {good + otherBye}, {ERtcpFault::OtherSource}},
        {"behind the goodbye", {good + bye, good}, {ERtcpFault::BehindBye}, false},
        {"no name", {Part(good, 0, 32)}, {ERtcpFault::NoName}, false},
        {"cut", {Part(good, 0, 43)}, {ERtcpFault::NotWhole}, false},
    };
    for (const auto& row : cases) {
        CRtcpReader reader(0x0A0B0C0D);
        bool lastIsGood = false;
        for (const Bytes& datagram : row.datagrams) {
            lastIsGood = reader.Read(datagram, {0, 0x100, 0x120, true});
        }
        std::array<std::uint64_t, static_cast<std::size_t>(ERtcpFault::Count)> faults{};
        for (const ERtcpFault fault : row.faults) ++faults[static_cast<std::size_t>(fault)];
        EXPECT_EQ(reader.tally().faults, faults) << row.name;
        EXPECT_EQ(lastIsGood, row.lastIsGood) << row.name;
    }
}

/// Luminance of the scene as a receiver sees it that makes its headers by code of its own.
Bytes ReceivedLuminance(const SJpegSettings& jpeg) {
    constexpr SPictureSize size{168, 72};  // no whole units of either subsampling
    std::vector<std::uint16_t> picture(168 * 72);
    CScene(size, 1).Render(0, 0, picture);
    qmx::cam::QuantTable lqt;
    qmx::cam::QuantTable cqt;
    const JpegTables tables = MakeJpegTables(jpeg.quality);
    std::copy_n(tables.begin(), 64, lqt);
    std::copy_n(tables.begin() + 64, 64, cqt);
    if (!jpeg.tablesInBand()) qmx::cam::MakeTables(jpeg.quality, lqt, cqt);
    const auto type = static_cast<std::uint8_t>(jpeg.subsampling);
    Bytes frame(700);
    frame.resize(
        qmx::cam::MakeHeaders(frame.data(), {type, 21, 9, jpeg.restartInterval}, lqt, cqt));
    CJpegEncoder encoder(size, jpeg);
    const auto data = encoder.Code(picture, 7);
    frame.insert(frame.end(), data.begin(), data.end());
    const auto decoded = qmxhost::DecodeJpeg(frame, qmxhost::EJpegForm::Luminance);
    EXPECT_TRUE(decoded && decoded->intact);
    EXPECT_EQ(ReadBlockStamp({decoded->samples, decoded->width}).number, 7u);
    EXPECT_FALSE(qmxhost::DecodeJpeg(frame + Bytes{0}, qmxhost::EJpegForm::Luminance)->intact);
    return decoded->samples;
}

// Were the quantisation tables taken in another order at one end, the picture would still decode,
// with its details wrong.
TEST(Korusim, CodesJpegByTheTablesThatAReceiverDerives) {
    const Bytes finest = ReceivedLuminance({99, 0, ESubsampling::Chroma422});
    struct {
        SJpegSettings jpeg;
        double errorMost;  // mean, in grey levels
    } const cases[] = {{{50, 8, ESubsampling::Chroma420}, 1},
                       {{10, 0, ESubsampling::Chroma422}, 1.35},
                       {{1, 1, ESubsampling::Chroma420}, 3},
                       {{255, 3, ESubsampling::Chroma422}, 0.6}};
    for (const auto& row : cases) {
        const Bytes samples = ReceivedLuminance(row.jpeg);
        double sum = 0;
        for (std::size_t i = 0; i < finest.size(); ++i) sum += std::abs(samples[i] - finest[i]);
        EXPECT_LT(sum / static_cast<double>(finest.size()), row.errorMost) << +row.jpeg.quality;
    }
}

TEST(FrameStamp, ShowsEveryChangedByteOfAnExactPicture) {
    Bytes picture(2 * 40, 0x5A);
    WriteStamp(picture, 0xFEDCBA98);
    EXPECT_EQ(ReadStamp(picture).state, EStamp::Good);
    EXPECT_EQ(ReadStamp(picture).number, 0xFEDCBA98);
    for (std::size_t i = 0; i < picture.size(); ++i) {
        Bytes damaged = picture;
        damaged[i] ^= 0x10;
        EXPECT_NE(ReadStamp(damaged).state, EStamp::Good) << i;
    }
    EXPECT_EQ(ReadStamp(Part(picture, 0, 78)).state, EStamp::Damaged);
    EXPECT_EQ(ReadStamp(Part(picture, 0, 11)).state, EStamp::Absent);
    EXPECT_EQ(ReadStamp(Bytes(80)).state, EStamp::Absent);
}

/// A grey picture with blocks.
Bytes Blocks(std::size_t width, std::size_t height, std::uint32_t number) {
    Bytes picture(width * height, 100);
    WriteBlockStamp({picture, width}, number);
    return picture;
}

TEST(FrameStamp, ShowsAPictureThatIsCutMovedOrMixed) {
    constexpr std::size_t width = 320;
    constexpr std::size_t height = 240;
    const Bytes one = Blocks(width, height, 41);
    const Bytes two = Blocks(width, height, 42);
    const auto rows = [](const Bytes& picture, std::size_t from, std::size_t to) {
        return Part(picture, from * width, to * width);
    };
    struct {
        const char* name;
        Bytes picture;
        std::size_t width;
        EStamp state;
    } const cases[] = {
        {"whole", one, width, EStamp::Good},
        {"none", Bytes(width * height, 100), width, EStamp::Absent},
        {"cut", rows(one, 0, 200), width, EStamp::Damaged},
        {"cut, the rest grey", rows(one, 0, 200) + Bytes(40 * width, 128), width, EStamp::Damaged},
        {"moved", rows(one, 0, 64) + rows(one, 72, 240) + rows(one, 232, 240), width,
         EStamp::Damaged},
        {"another's lower half", rows(one, 0, 120) + rows(two, 120, 240), width, EStamp::Damaged},
    };
    for (const auto& row : cases) {
        const SStamp stamp = ReadBlockStamp({row.picture, row.width});
        EXPECT_EQ(stamp.state, row.state) << row.name;
        EXPECT_TRUE(row.state != EStamp::Good || stamp.number == 41) << row.name;
    }
}

}  // namespace
