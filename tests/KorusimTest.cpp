// The camera simulator's own rules, without a network. The other tests trust it as their camera.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "FrameDecoders.h"
#include "FrameStamp.h"
#include "Impairments.h"
#include "JpegEncoder.h"
#include "JpegHeaders.h"
#include "JpegPacketizer.h"
#include "MjlsPacketizer.h"
#include "NodeTree.h"
#include "RawPacketizer.h"
#include "Rtcp.h"
#include "RtspServer.h"
#include "Scene.h"

namespace {

using namespace korusim;
using Bytes = std::vector<std::uint8_t>;

TEST(Korusim, NamesTheSettingThatIsWrong) {
    struct {
        const char* argument;
        const char* error;  // a part of it; empty: the camera is good
    } const cases[] = {
        {"127.0.0.1", ""},
        {"127.0.0.1,name=A b,streams=mjls+mjpg,size=640x480,size=8x2040,q=99,restart=65535", ""},
        {"127.0.0.1,streams=mjls,size=641x4096,q=128,subsampling=420,rate=0.5,mtu=64", ""},
        {"127.0.0", "not an IPv4 address"},
        {"127.0.0.1,size=7x8", "size=7x8"},
        {"127.0.0.1,streams=mjpg,size=640x480,size=644x480", "size=644x480"},
        {"127.0.0.1,streams=mjls+mjpg,size=2048x480", "size=2048x480"},
        {"127.0.0.1,q=0", "q=0"},
        {"127.0.0.1,q=100", "q=100"},
        {"127.0.0.1,restart=65536", "restart=65536"},
        {"127.0.0.1,subsampling=444", "subsampling=444"},
        {"127.0.0.1,rate=nan", "rate=nan"},
        {"127.0.0.1,mtu=63", "mtu=63"},
        {"127.0.0.1,rtcp-timeout=-1", "rtcp-timeout=-1"},
        {"127.0.0.1,seed=1,seed=2", "given twice"},
        {"127.0.0.1,quirk=rude", "quirk=rude"},
        {"127.0.0.1,colour=red", "no such setting"},
        {"127.0.0.1,", "key=value"},
    };
    for (const auto& row : cases) {
        const std::string error = ParseCamera(row.argument).error;
        EXPECT_EQ(error.empty(), *row.error == '\0') << row.argument << ": " << error;
        EXPECT_NE(error.find(row.error), std::string::npos) << row.argument << ": " << error;
    }
}

TEST(Korusim, AnswersNodeRequests) {
    const char* const cases[][2] = {
        {"VERIFY .rtp", "OK"},
        {"VERIFY .rt", "ERROR no node .rt"},
        {"GET .rtp.caps.config.rtsp.streaming.enabled", "OK bool true"},
        {"GET .version.product.serial", "OK string SIM-127.0.0.1"},
        {"GET .rtp.frequency", "OK double 7.5"},
        {"SET .rtp.frequency double 0", "ERROR out of range"},
        {"SET .rtp.frequency double 6x", "ERROR not a number"},
        {"SET .rtp.frequency bool true", "ERROR wrong type"},
        {"SET .version.hwtype double 1", "ERROR .version.hwtype can't be set"},
        {"get .rtp.frequency", "ERROR unknown request"},
    };
    CNodeTree tree(ParseCamera("127.0.0.1,rate=7.5").settings);
    for (const auto& row : cases) EXPECT_EQ(tree.Answer(row[0]), row[1]);
    EXPECT_EQ(tree.Answer("SET .rtp.frequency double 60"), "OK");
    EXPECT_EQ(tree.frequency(), 60);
}

// Each step: connection, method, path, status of the answer. SETUP-TCP offers nothing but TCP.
TEST(Korusim, KeepsTheSessionRules) {
    struct {
        const char* streams;
        const char* steps;
        std::optional<double> rate;  // of the session at the end
    } const cases[] = {
        {"raw",
         "1 DESCRIBE / 200  1 DESCRIBE /mjls 404  1 PLAY /sid=96 454  1 SETUP /sid=97 404 "
         "1 SETUP /mjls/stream=0 404  1 SETUP-TCP /sid=96 461  1 SETUP /sid=96 200 "
         "1 SETUP /sid=96 455  2 SETUP /sid=96 453  2 PLAY /sid=96 454  1 PAUSE /sid=96 455 "
         "1 PLAY /sid=95 404  1 PLAY /sid=96 200  1 PLAY /sid=96 455  1 PAUSE /sid=96 200 "
         "1 PLAY /sid=96 200  1 TEARDOWN /sid=96 200  1 TEARDOWN /sid=96 454  2 SETUP /sid=96 200",
         std::nullopt},
        {"mjls+mjpg",
         "1 DESCRIBE / 404  1 DESCRIBE /mjls 200  1 DESCRIBE /mjpg 200  1 SETUP /mjls 404 "
         "1 SETUP /mjls/stream=1 404  1 SETUP /mjls/stream=0?frate=0 400 "
         "1 SETUP /mjls/stream=0?frate=-1 400  1 SETUP /mjls/stream=0?frate=7.5 400 "
         "1 SETUP /mjls/stream=0?frate= 400  1 SETUP /mjls/stream=0?frate=1001 400 "
         "1 SETUP /mjls/stream=0?x=1 400  1 SETUP /mjpg/stream=0?frate=25 200 "
         "1 PLAY /mjpg/stream=0 404  1 PLAY /mjls 404  1 PLAY /mjpg 200  1 PAUSE /mjpg 200",
         25},
        {"mjls",
         "1 DESCRIBE /mjpg 404  1 SETUP /mjpg/stream=0 404  1 SETUP /mjls/stream=0 200 "
         "1 RECORD /mjls 501  1 PLAY /mjls 200",
         std::nullopt},
        {"mjpg", "1 DESCRIBE /mjls 404  1 SETUP /mjpg/stream=0 200", std::nullopt},
    };
    for (const auto& row : cases) {
        CRtspServer server(ParseCamera(std::string("127.0.0.1,streams=") + row.streams).settings,
                           {6000, 6001});
        std::istringstream steps(row.steps);
        ConnectionId connection = 0;
        std::string method, path, status;
        while (steps >> connection >> method >> path >> status) {
            const std::string transport = method == "SETUP-TCP"
                                              ? "RTP/AVP/TCP;unicast"
                                              : "RTP/AVP;unicast;client_port=5000-5001";
            const SRtspRequest request{method.substr(0, method.find('-')),
                                       "rtsp://127.0.0.1:554" + path,
                                       "RTSP/1.0",
                                       {{"CSeq", "7"},
                                        {"Session", server.session() ? server.session()->id : ""},
                                        {"Transport", transport}}};
            const std::string head = server.Answer(connection, request).head;
            EXPECT_EQ(head.substr(0, 13), "RTSP/1.0 " + status + " ") << method << " " << path;
            EXPECT_NE(head.find("\r\nCSeq: 7\r\n"), std::string::npos);
        }
        EXPECT_EQ(server.session() ? server.session()->rate : std::nullopt, row.rate);
        server.ConnectionClosed(1);
        server.ConnectionClosed(2);
        EXPECT_FALSE(server.session());
    }
}

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
        bool inOrder = true;
    } const cases[] = {
        {"good ones", {good, Report(4, 255, 3, 0x20), Report(4, 0, 3, 0x20) + bye}, {}},
        {"sent last", {Report(4, 0, 0, 0x20)}, {}},
        {"never sent", {Report(4, 0, 0, 0x21)}, {ERtcpFault::NeverSent}},
        {"all lost", {Report(4, 1, 33, 0x20)}, {}},
        {"more than all lost", {Report(4, 1, 34, 0x20)}, {ERtcpFault::LostTooMany}},
        {"fraction of none", {Report(4, 1, 0, 0x20)}, {ERtcpFault::LostNone}},
        {"fraction of none since", {good, Report(4, 1, 2, 0x20)}, {ERtcpFault::LostNone}},
        {"fraction hidden by one come twice", {good, Report(4, 1, 2, 0x20)}, {}, true, false},
        {"other source",
         {good, Report(5, 0, 2, 0x20)},
         {ERtcpFault::OtherSource, ERtcpFault::OtherSource}},
        {"other name", {good, Report(4, 0, 2, 0x20, "m")}, {ERtcpFault::OtherName}},
        {"another's goodbye", {good + otherBye}, {ERtcpFault::OtherSource}},
        {"behind the goodbye", {good + bye, good}, {ERtcpFault::BehindBye}, false},
        {"goodbye before the name",
         {Part(good, 0, 32) + bye + Part(good, 32, 44)},
         {ERtcpFault::BehindBye},
         false},
        {"no name", {Part(good, 0, 32)}, {ERtcpFault::NoName}, false},
        {"cut", {Part(good, 0, 43)}, {ERtcpFault::NotWhole}, false},
        {"empty", {{}}, {ERtcpFault::NotWhole}, false},
    };
    for (const auto& row : cases) {
        CRtcpReader reader(0x0A0B0C0D);
        bool lastIsGood = false;
        for (const Bytes& datagram : row.datagrams) {
            lastIsGood = reader.Read(datagram, {0, 0x100, 0x120, row.inOrder});
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

TEST(Korusim, ImpairsAsToldAndCountsIt) {
    struct {
        const char* settings;
        const char* arrives;  // of packets 1 to 6, the last flush included
        SImpairmentTally tally;
    } const cases[] = {
        {"loss=0", "123456", {0, 0, 0}},
        {"loss=1", "", {6, 0, 0}},
        {"duplicate=1", "112233445566", {0, 6, 0}},
        {"reorder=1", "214365", {0, 0, 3}},
        {"reorder=1,duplicate=1", "221443665", {0, 3, 3}},
    };
    for (const auto& row : cases) {
        CImpairments network(ParseCamera(std::string("127.0.0.1,") + row.settings).settings, 1);
        std::string arrived;
        const PacketSink sink = [&](std::span<const std::uint8_t> packet) {
            arrived += static_cast<char>(packet[0]);
        };
        for (std::uint8_t name = '1'; name <= '6'; ++name) {
            network.Pass({&name, 1}, sink);
        }
        network.Flush(sink);
        EXPECT_EQ(arrived, row.arrives) << row.settings;
        EXPECT_EQ(network.tally().dropped, row.tally.dropped);
        EXPECT_EQ(network.tally().duplicated, row.tally.duplicated);
        EXPECT_EQ(network.tally().reordered, row.tally.reordered);
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
        {"small", Blocks(160, 64, 41), 160, EStamp::Good},
        {"too small", Blocks(160, 56, 41), 160, EStamp::Absent},
        {"none", Bytes(width * height, 100), width, EStamp::Absent},
        {"empty", {}, width, EStamp::Absent},
        {"cut", rows(one, 0, 200), width, EStamp::Damaged},
        {"cut, the rest grey", rows(one, 0, 200) + Bytes(40 * width, 128), width, EStamp::Damaged},
        {"moved", rows(one, 0, 64) + rows(one, 72, 240) + rows(one, 232, 240), width,
         EStamp::Damaged},
        {"another's lower half", rows(one, 0, 120) + rows(two, 120, 240), width, EStamp::Damaged},
        {"another's rows between", rows(one, 0, 80) + rows(two, 80, 160) + rows(one, 160, 240),
         width, EStamp::Damaged},
    };
    for (const auto& row : cases) {
        const SStamp stamp = ReadBlockStamp({row.picture, row.width});
        EXPECT_EQ(stamp.state, row.state) << row.name;
        EXPECT_TRUE(row.state != EStamp::Good || stamp.number == 41) << row.name;
    }
}

}  // namespace
