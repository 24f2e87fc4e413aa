#include "RtspClient.h"

#include <gtest/gtest.h>

#include "support/ScriptedPeer.h"

namespace {

using namespace qmx::cam;
using test::closeConnection;
using test::CScriptedPeer;
using test::Ok;

const std::string session = "Session: 42;timeout=60\r\n";
const std::string transport =
    "Transport: RTP/AVP;unicast;client_port=1-2;server_port=6970-6971\r\n";

std::string Url(const CScriptedPeer& peer, const char* path) {
    return "rtsp://127.0.0.1:" + std::to_string(peer.port()) + path + " RTSP/1.0\r\n";
}

// Every byte that the client ever says, in one life.
TEST(RtspClient, SpeaksItsLifeByteForByte) {
    CScriptedPeer peer({Ok(0, "Server: cam\r\n"),
                        Ok(1, "Content-Type: application/sdp\r\n", "v=0\nm=a 0 RTP/AVP 9\n"),
                        Ok(2, session + transport), Ok(3, "Session: 42\r\n"), Ok(4),
                        Ok(5, "Session: 42\r\n"), Ok(6), Ok(7), Ok(0), Ok(1, session + transport),
                        Ok(2)});
    {
        CRtspClient client;
        ASSERT_TRUE(client.Connect("127.0.0.1", peer.port()));
        EXPECT_FALSE(client.Connect("127.0.0.1", peer.port()));  // not a byte
        EXPECT_EQ(client.GetServerName(), "cam");
        EXPECT_TRUE(client.Describe("/mjls").IsValid());
        EXPECT_FALSE(client.Play() || client.Pause() || client.Teardown());  // gates closed
        ASSERT_TRUE(client.Setup("/mjpg/stream=0?frate=9", "/mjpg", 50000, 50001));
        EXPECT_EQ(client.GetServerRtpPort(), 6970);
        EXPECT_EQ(client.GetServerRtcpPort(), 6971);
        EXPECT_EQ(client.GetClientRtpPort(), 50000);
        EXPECT_EQ(client.GetClientRtcpPort(), 50001);
        EXPECT_FALSE(client.Setup("/sid=1", 1, 2));
        EXPECT_TRUE(client.Play());
        EXPECT_FALSE(client.Play());
        EXPECT_TRUE(client.Pause());
        EXPECT_TRUE(client.Play());
        EXPECT_TRUE(client.Teardown());
        EXPECT_FALSE(client.IsPlaying() || client.IsSetUp());
        client.Close();
        client.Close();
        ASSERT_TRUE(client.Connect("127.0.0.1", peer.port()));
        EXPECT_EQ(client.GetServerName(), "");
        EXPECT_TRUE(client.Setup("/sid=96", 1, 2));
    }
    const std::string id = "Session: 42\r\n\r\n";
    const auto sessionRequest = [&](const char* method, const char* path, const char* cseq) {
        return method + (" " + Url(peer, path)) + "CSeq: " + cseq + "\r\n" + id;
    };
    const std::vector<std::string> expected = {
        "OPTIONS * RTSP/1.0\r\nCSeq: 0\r\n\r\n",
        "DESCRIBE " + Url(peer, "/mjls") + "Accept: application/sdp\r\nCSeq: 1\r\n\r\n",
        "SETUP " + Url(peer, "/mjpg/stream=0?frate=9") +
            "CSeq: 2\r\nTransport: RTP/AVP;unicast;client_port=50000-50001\r\n\r\n",
        sessionRequest("PLAY", "/mjpg", "3"),
        sessionRequest("PAUSE", "/mjpg", "4"),
        sessionRequest("PLAY", "/mjpg", "5"),
        sessionRequest("PAUSE", "/mjpg", "6"),
        sessionRequest("TEARDOWN", "/mjpg", "7"),
        "OPTIONS * RTSP/1.0\r\nCSeq: 0\r\n\r\n",
        "SETUP " + Url(peer, "/sid=96") +
            "CSeq: 1\r\nTransport: RTP/AVP;unicast;client_port=1-2\r\n\r\n",
        sessionRequest("TEARDOWN", "/sid=96", "2"),
    };
    EXPECT_EQ(peer.Requests(), expected);
}

TEST(RtspClient, ConnectsOnlyToWhatAnswersOptions) {
    const std::pair<const char*, std::string> refusals[] = {
        {"closes", closeConnection},
        {"another status", "RTSP/1.0 201 Created\r\nCSeq: 0\r\n\r\n"},
        {"no sequence number", "RTSP/1.0 200 OK\r\n\r\n"},
        {"another number", Ok(1)},
        {"garbage", "HTTP/1.1 200 OK\r\n\r\n"},
        {"a lie about its length", Ok(0, "Content-Length: 99999\r\n")},
    };
    for (const auto& [name, answer] : refusals) {
        SCOPED_TRACE(name);
        CScriptedPeer peer({answer, Ok(0)});
        CRtspClient client;
        EXPECT_FALSE(client.Connect("127.0.0.1", peer.port()));
        EXPECT_FALSE(client.Describe("/").IsValid());
        EXPECT_TRUE(client.Connect("127.0.0.1", peer.port()));
        EXPECT_EQ(peer.Methods(), "OPTIONS OPTIONS");
    }
}

TEST(RtspClient, TakesOnlyDescriptions) {
    const std::string body = "v=0\nm=a 0 RTP/AVP 9\n";
    const std::pair<std::string, bool> cases[] = {
        {test::Description(1, body), true},
        {test::Description(2, body), false},
        {Ok(1, "", body), false},
        {Ok(1, "Content-Type: application/sdp;charset=utf-8\r\n", body), false},
        {Ok(1, "Content-Type: application/sdp\r\n"), false},
        {"RTSP/1.0 404 Not Found\r\nCSeq: 1\r\n\r\n", false},
    };
    for (const auto& [answer, valid] : cases) {
        CScriptedPeer peer({Ok(0), answer, test::Description(2, body)});
        CRtspClient client;
        ASSERT_TRUE(client.Connect("127.0.0.1", peer.port()));
        EXPECT_EQ(client.Describe("/").IsValid(), valid) << answer;
        EXPECT_TRUE(client.Describe("/").IsValid()) << "the connection is still in step";
    }
}

struct SSetupCase {
    const char* name;
    std::string headers;
    bool works;
    std::uint16_t rtpPort;
    std::uint16_t rtcpPort;
    std::string playSession;  // what the PLAY request names
};

TEST(RtspClient, ReadsSessionAndPorts) {
    const auto ports = [](const std::string& text) {
        return "Session: a\r\nTransport: RTP/AVP;" + text + "\r\n";
    };
    const SSetupCase cases[] = {
        {"a pair", ports("server_port=10-20;mode=play"), true, 10, 20, "a"},
        {"one port", ports("server_port=10"), true, 10, 11, "a"},
        {"the last one wins", ports("server_port=1-2;;server_port=3-4"), true, 3, 4, "a"},
        {"low 16 bits", ports("server_port=65546-65557"), true, 10, 21, "a"},
        {"two Transport lines", ports("x") + "Transport: server_port=5-6\r\n", false, 0, 0, ""},
        {"a blank hides it", ports(" server_port=10-11"), false, 0, 0, ""},
        {"the last port", ports("server_port=65535"), false, 65535, 0, ""},
        {"no number", ports("server_port="), false, 0, 1, ""},
        {"a wrapped zero", ports("server_port=10-65536"), false, 10, 0, ""},
        {"no server port", ports("unicast"), false, 0, 0, ""},
        {"no session", "Transport: server_port=1-2\r\n", false, 0, 0, ""},
        {"no transport", "Session: a\r\n", false, 0, 0, ""},
        {"an empty id", "Session: ;timeout=1\r\nTransport: server_port=1-2\r\n", true, 1, 2, ""},
    };
    for (const SSetupCase& row : cases) {
        SCOPED_TRACE(row.name);
        CScriptedPeer peer({Ok(0), Ok(1, row.headers), closeConnection});
        CRtspClient client;
        ASSERT_TRUE(client.Connect("127.0.0.1", peer.port()));
        EXPECT_EQ(client.Setup("/sid=1", 1, 2), row.works);
        EXPECT_EQ(client.IsSetUp(), row.works);
        EXPECT_EQ(client.GetServerRtpPort(), row.rtpPort);
        EXPECT_EQ(client.GetServerRtcpPort(), row.rtcpPort);
        EXPECT_EQ(client.GetClientRtpPort(), row.works ? 1 : 0);
        EXPECT_FALSE(client.Play());
        if (row.works) {
            EXPECT_TRUE(
                peer.Requests().back().ends_with("Session: " + row.playSession + "\r\n\r\n"));
        }
    }
}

// What stands after each failure decides what a later stop, close and start can do.
TEST(RtspClient, FlagsMoveOnlyOnSuccess) {
    const std::string refused = "RTSP/1.0 500 No\r\nCSeq: 3\r\n\r\n";
    // PAUSE refused: no TEARDOWN, and the flags outlive the connection.
    CScriptedPeer peer({Ok(0), Ok(1, session + transport), Ok(2, "Session: 42\r\n"), refused,
                        refused, Ok(0), refused, Ok(2), Ok(3), Ok(4, session + transport)});
    CRtspClient client;
    ASSERT_TRUE(client.Connect("127.0.0.1", peer.port()) && client.Setup("/", 1, 2));
    ASSERT_TRUE(client.Play());
    EXPECT_FALSE(client.Teardown());
    EXPECT_TRUE(client.IsPlaying() && client.IsSetUp());
    client.Close();
    EXPECT_TRUE(client.IsPlaying() && client.IsSetUp());
    ASSERT_TRUE(client.Connect("127.0.0.1", peer.port()));
    EXPECT_FALSE(client.Setup("/", 1, 2));
    EXPECT_FALSE(client.Pause());
    EXPECT_TRUE(client.Teardown());
    EXPECT_TRUE(client.Setup("/", 1, 2));
    EXPECT_EQ(peer.Methods(), "OPTIONS SETUP PLAY PAUSE PAUSE OPTIONS PAUSE PAUSE TEARDOWN SETUP");
}

}  // namespace
