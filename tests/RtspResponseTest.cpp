#include "RtspResponse.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "support/Resources.h"
#include "support/Sockets.h"

namespace {

using namespace qmx::cam;

/// A connection. What is written to its far end arrives at the near end.
struct SConnection {
    std::pair<platform::CSocket, platform::CSocket> ends = test::ConnectedPair();

    platform::SocketHandle handle() const { return ends.first.handle(); }
    void Write(const std::string& bytes) const {
        ASSERT_EQ(platform::Send(ends.second.handle(), bytes.data(), bytes.size()),
                  static_cast<std::ptrdiff_t>(bytes.size()));
    }
    void CloseFar() { ends.second.Reset(); }
    std::string Rest() const {
        std::string rest(1 << 16, '\0');
        rest.resize(
            static_cast<std::size_t>(platform::Receive(handle(), rest.data(), rest.size())));
        return rest;
    }
};

std::string Line(std::size_t length) { return "X:" + std::string(length - 2, 'y'); }

/// Returns the headers as "name=value;" each.
std::string AsText(const CRtspHeaders& headers) {
    std::string text;
    for (const auto& [name, value] : headers) text += name + "=" + value + ";";
    return text;
}

TEST(RtspResponse, ReadsExactlyOneResponse) {
    const std::string ok = "RTSP/1.0 200 OK\r\n";
    const std::string size = ok + "Content-Length: ";
    const std::string full(bodyLimit, 'b');
    struct {
        std::string input;
        std::int32_t status;
        std::string headers;
        std::string body;
        std::string rest;  // left in the socket
    } const cases[] = {
        {ok + "CSeq: 7\r\n\r\nnext", 200, "CSeq=7;", "", "next"},
        // Line ends and blanks: all carriage returns are removed, and a tab is not a blank.
        {"RTSP/1.0 404 Gone\nA:  b \n\n", 404, "A=b ;", "", ""},
        {"RT\rSP/1.0 200\r\n\rA\r:b\r\n\r\r\n", 200, "A=b;", "", ""},
        {ok + "A:\t\r\n\r\n", 200, "A=\t;", "", ""},
        // Bodies.
        {size + "4\r\n\r\nbodynext", 200, "Content-Length=4;", "body", "next"},
        {"RTSP/1.0 404 No\r\nContent-Length: 1\r\n\r\nbn", 404, "Content-Length=1;", "b", "n"},
        {size + "0\r\n\r\nn", 200, "Content-Length=0;", "", "n"},
        {size + "x\r\n\r\nn", 200, "Content-Length=x;", "", "n"},
        {size + "32768\r\n\r\n" + full, 200, "Content-Length=32768;", full, ""},
        {size + "32769\r\n\r\nb", -1, "Content-Length=32769;", "", "b"},
        {size + "4294967297\r\n\r\nb", -1, "Content-Length=4294967297;", "", "b"},
        {size + "-1\r\n\r\nb", -1, "Content-Length=-1;", "", "b"},
        {size + "4\r\n\r\nbod", -1, "Content-Length=4;", "bod", ""},
        {ok + "content-length: 4\r\n\r\nbody", 200, "content-length=4;", "", "body"},
        // Headers: repeated, folded and malformed.
        {size + "1\r\nContent-Length: 1\r\n\r\nb", -1, "Content-Length=1;", "", "\r\nb"},
        {ok + "T: a\r\nT: b\r\n\r\n", 200, "T=a,b;", "", ""},
        {ok + "A: b\r\n c: d\r\n\r\n", 200, " c=d;A=b;", "", ""},
        {ok + "A: b\r\n cd\r\n\r\n", -1, "A=b;", "", "\r\n"},
        {ok + ":b\r\n\r\n", -1, "", "", "\r\n"},
        {ok + "A:   \r\n\r\n", -1, "", "", "\r\n"},
        // Status lines.
        {"RTSP/1.0 2000 OK\r\n\r\n", 2000, "", "", ""},
        {"RTSP/1.0 299\r\n\r\n", 299, "", "", ""},
        {"RTSP/1.0 20\r\n\r\n", -1, "", "", "\r\n"},
        {"RTSP/2.0 200 OK\r\n\r\n", -1, "", "", "\r\n"},
        {"RTSP/1.0 2x0 OK\r\n\r\n", -1, "", "", "\r\n"},
        {"RTSP/1.0 20x OK\r\n\r\n", -1, "", "", "\r\n"},
        // The longest line, one longer, and connections that end.
        {ok + Line(8191) + "\r\n\r\n", 200, "X=" + std::string(8189, 'y') + ";", "", ""},
        {ok + Line(8192) + "\r\n\r\n", -1, "", "", "\r\n\r\n"},
        {ok + "A: b\r\n", -1, "A=b;", "", ""},
        {"", -1, "", "", ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.input.substr(0, 80));
        SConnection connection;
        connection.Write(row.input);
        connection.CloseFar();
        CRtspHeaders headers{{"left", "over"}};
        std::string body = "left over";
        EXPECT_EQ(ReadResponse(connection.handle(), headers, body), row.status);
        EXPECT_EQ(AsText(headers), row.headers);
        EXPECT_EQ(body, row.body);
        EXPECT_EQ(connection.Rest(), row.rest);
    }
}

// A body that arrives in two pieces makes the response fail. The second piece is sent after the
// first one has been received, and after the receive has had time to return.
TEST(RtspResponse, AcceptsABodyOnlyInOnePiece) {
    SConnection connection;
    connection.Write("RTSP/1.0 200 OK\r\nContent-Length: 4\r\n\r\nbo");
    ASSERT_TRUE(test::Readable(connection.ends.first, 20000));
    CRtspHeaders headers;
    std::string body;
    auto status = std::async(std::launch::async,
                             [&] { return ReadResponse(connection.handle(), headers, body); });
    EXPECT_TRUE(test::WaitFor([&] { return !test::Readable(connection.ends.first, 0); }));
    status.wait_for(std::chrono::milliseconds(50));
    connection.Write("dy");
    EXPECT_EQ(status.get(), -1);
    EXPECT_EQ(body + "," + connection.Rest(), "bo,dy");
}

}  // namespace
