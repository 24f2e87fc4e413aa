#include "RtspStream.h"

#include <gtest/gtest.h>

namespace {

using namespace qmx::cam;

/// Returns a description in one line: for each media its name and its formats as
/// payload:rtpmap:widthxheight:fmtp.
std::string Summary(const SRtspStream& stream) {
    std::string text;
    for (const SRtspMedia& media : stream.media) {
        text += "[" + media.name;
        for (const SRtspFormat& format : media.formats) {
            text += "|" + format.payload + ":" + format.rtpmap + ":" +
                    std::to_string(format.width) + "x" + std::to_string(format.height) + ":" +
                    format.fmtp;
        }
        text += "]";
    }
    return text;
}

TEST(RtspStream, ReadsFormats) {
    const std::string head = "v=0\nm=video 0 RTP/AVP 96 97\n";
    struct {
        const char* name;
        std::string body;
        const char* summary;  // null: not valid
    } const cases[] = {
        {"both ways to state a size",
         "v=0\r\no=- 1 1 IN IP4 10.0.0.5\r\ns=Roof\r\n\r\nm=video 0 RTP/AVP 96 97\r\n"
         "a=rtpmap:96 ZRAW\r\na=framesize:96 640-480\r\na=rtpmap:97 ZRAW\r\n"
         "a=fmtp:97 width=320;height=240\r\n",
         "[video 0 RTP/AVP|96:ZRAW:640x480:|97:ZRAW:320x240:width=320;height=240]"},
        {"a size for all formats", head + "a=framesize:8-9\n",
         "[video 0 RTP/AVP|96::8x9:|97::8x9:]"},
        {"the later line wins", head + "a=fmtp:96 width=1;height=2\na=framesize:96   3-4\n",
         "[video 0 RTP/AVP|96::3x4:width=1;height=2|97::0x0:]"},
        {"the later line wins, either way",
         head + "a=framesize:96 3-4\na=fmtp:96 width=1;height=2\n",
         "[video 0 RTP/AVP|96::1x2:width=1;height=2|97::0x0:]"},
        {"half a size, and a hidden one",
         head + "a=framesize:97 1-2\na=fmtp:97 height=7; width=5;bare;width;widths=6\n",
         "[video 0 RTP/AVP|96::0x0:|97::1x7:height=7; width=5;bare;width;widths=6]"},
        {"numbers as far as they go", head + "a=framesize:96 12px-99999999999\n",
         "[video 0 RTP/AVP|96::12x4294967295:|97::0x0:]"},
        {"a hyphen first", head + "a=framesize:96 -640-480\n",
         "[video 0 RTP/AVP|96::4294966656x640:|97::0x0:]"},
        {"signs", head + "a=framesize:96 +640-+480\na=fmtp:97 width= +8;height=-1\n",
         "[video 0 RTP/AVP|96::640x480:|97::8x4294967295:width= +8;height=-1]"},
        {"payloads are compared whole",
         "v=0\nm=a 0 RTP/AVP 96 9 961\na=rtpmap:9 B\na=rtpmap:961 C\na=rtpmap:096 D\n",
         "[a 0 RTP/AVP|96::0x0:|9:B:0x0:|961:C:0x0:]"},
        {"an unknown payload does nothing", head + "a=rtpmap:98 ZRAW\na=framesize:98 x\n",
         "[video 0 RTP/AVP|96::0x0:|97::0x0:]"},
        {"the first of equal payloads", "v=0\nm=a  0 RTP/AVP 1 1\na=rtpmap:1 X\n",
         "[a 0 RTP/AVP|1:X:0x0:|1::0x0:]"},
        {"attributes before the media reach no format",
         "v=0\na=rtpmap:96\na=framesize:bad\nm=a 0 RTP/AVP 96\n", "[a 0 RTP/AVP|96::0x0:]"},
        {"a second media", "v=0\nm=a 0 RTP/AVP 1\nm=b 2 RTP/AVP 1\na=rtpmap:1 Y\n",
         "[a 0 RTP/AVP|1::0x0:][b 2 RTP/AVP|1:Y:0x0:]"},
        {"a broken line ends the reading", head + "a=rtpmap:96 A\nx\na=rtpmap:97 B\n",
         "[video 0 RTP/AVP|96:A:0x0:|97::0x0:]"},
        {"an empty value is a broken line", head + "s=\na=rtpmap:96 A\n",
         "[video 0 RTP/AVP|96::0x0:|97::0x0:]"},
        {"other letters are skipped", head + "t=0 0\nX=?\nb=AS:1\na=rtpmap:96 A\n",
         "[video 0 RTP/AVP|96:A:0x0:|97::0x0:]"},
        {"no media", "v=0\ns=x\n", nullptr},
        {"empty", "\r\n\r\n", nullptr},
        {"text after the version", "v=0 \nm=a 0 RTP/AVP 1\n", nullptr},
        {"the version not first", "s=x\nv=0\nm=a 0 RTP/AVP 1\n", nullptr},
        {"a media without a format", head + "m=a 0 RTP/AVP\n", nullptr},
        {"another transport", "v=0\nm=a 0 RTP/SAVP 1\n", nullptr},
        {"a longer transport", "v=0\nm=a 0 RTP/AVPF 1\n", nullptr},
        {"rtpmap without payload", head + "a=rtpmap:96\n", nullptr},
        {"rtpmap without text", head + "a=rtpmap:96  \n", nullptr},
        {"bare fmtp", head + "a=fmtp\n", nullptr},
        {"framesize without hyphen", head + "a=framesize:96 640x480\n", nullptr},
        {"shared framesize without hyphen", head + "a=framesize:640\n", nullptr},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        const SRtspStream stream = ParseDescription(row.body);
        EXPECT_EQ(stream.IsValid() ? Summary(stream) : "not valid",
                  row.summary != nullptr ? row.summary : "not valid");
    }
}

// Before the first media a line belongs to the session. After it, a line belongs to the current
// media, or still to the session if a media has no such field.
TEST(RtspStream, DistinguishesSessionAndMedia) {
    const std::string session =
        "v=0\no=O\ns=S\ni=I\nu=U\ne=E\np=P\nc=C\nz=Z\nk=K\na=A:1:2\na=B\na=rtpmap:1 X\n";
    const std::string media = "m=a 0 RTP/AVP 1\ni=i\nc=c\nk=k\na=A:3\na=D\na=framesize:1-2\n";
    const std::string second = "m=b 0 RTP/AVP 1\nc=d\na=A:4\ns=T\nv=1\n";
    SRtspStream stream = ParseDescription(session + media + second);
    ASSERT_EQ(stream.media.size(), 2u);
    EXPECT_EQ(stream.version + stream.origin + stream.sessionName + stream.information, "1OTI");
    EXPECT_EQ(stream.uri + stream.email + stream.phone + stream.connection, "UEPC");
    EXPECT_EQ(stream.timeZones + stream.encryptionKey, "ZK");
    EXPECT_EQ(stream.attributes, (SdpAttributes{{"A", "1:2"}, {"B", ""}, {"rtpmap", "1 X"}}));
    const SRtspMedia& one = stream.media[0];
    const SRtspMedia& two = stream.media[1];
    EXPECT_EQ(one.information + one.connection + one.encryptionKey, "ick");
    EXPECT_EQ(one.attributes, (SdpAttributes{{"A", "3"}, {"D", ""}, {"framesize", "1-2"}}));
    EXPECT_EQ(two.information + two.connection + two.encryptionKey, "d");
    EXPECT_EQ(two.attributes, (SdpAttributes{{"A", "4"}}));
    stream.Reset();
    EXPECT_TRUE(!stream.IsValid() && stream.media.empty());
    EXPECT_EQ(stream.version + stream.origin, "O");
}

}  // namespace
