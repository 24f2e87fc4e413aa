#include "RtspStream.h"

#include <gtest/gtest.h>

namespace {

using namespace qmx::cam;

/// A description in one line: each media's name and formats as payload:rtpmap:widthxheight:fmtp.
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
        {"both ways to tell a size",
         "v=0\r\no=- 1 1 IN IP4 10.0.0.5\r\ns=Roof\r\n\r\nm=video 0 RTP/AVP 96 97\r\n"
         "a=rtpmap:96 ZRAW\r\na=framesize:96 640-480\r\na=rtpmap:97 ZRAW\r\n"
         "a=fmtp:97 width=320;height=240\r\n",
         "[video 0 RTP/AVP|96:ZRAW:640x480:|97:ZRAW:320x240:width=320;height=240]"},
        {"a size for all formats", head + "a=framesize:8-9\n",
         "[video 0 RTP/AVP|96::8x9:|97::8x9:]"},
        {"the later line wins", head + "a=fmtp:96 width=1;height=2\na=framesize:96   3-4\n",
         "[video 0 RTP/AVP|96::3x4:width=1;height=2|97::0x0:]"},
        {"half a size, and a hidden one", head + "a=fmtp:97 height=7; width=5;bare;width\n",
         "[video 0 RTP/AVP|96::0x0:|97::0x7:height=7; width=5;bare;width]"},
        {"numbers as far as they go", head + "a=framesize:96 12px-99999999999\n",
         "[video 0 RTP/AVP|96::12x4294967295:|97::0x0:]"},
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
        {"a text behind the version", "v=0 \nm=a 0 RTP/AVP 1\n", nullptr},
        {"the version not first", "s=x\nv=0\nm=a 0 RTP/AVP 1\n", nullptr},
        {"a media without a format", head + "m=a 0 RTP/AVP\n", nullptr},
        {"another transport", "v=0\nm=a 0 RTP/SAVP 1\n", nullptr},
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

}  // namespace
