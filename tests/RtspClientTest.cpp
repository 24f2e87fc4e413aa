#include "RtspClient.h"

#include <gtest/gtest.h>

#include <functional>

#include "support/ScriptedPeer.h"

namespace {

using namespace qmx::cam;
using namespace test;

const std::string session = "Session: 42;timeout=60\r\n";
const std::string transport =
    "Transport: RTP/AVP;unicast;client_port=1-2;server_port=6970-6971\r\n";
const std::string played = "Session: 42\r\n";

std::string Url(const CScriptedPeer& peer, const char* path, const char* host = "127.0.0.1") {
    return "rtsp://" + std::string(host) + ":" + std::to_string(peer.port()) + path +
           " RTSP/1.0\r\n";
}

// Every byte of every request.
TEST(RtspClient, SendsExactRequests) {
    const std::string portsKept = session + "Transport: RTP/AVP\r\n";
    CScriptedPeer peer({Ok("Server: cam\r\n"), Description("v=0\nm=a 0 RTP/AVP 9\n"),
                        Ok(session + transport), Ok(played), Ok(), Ok(played), Ok(), Ok(), Ok(),
                        Ok(portsKept), Ok()});
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
        ASSERT_TRUE(client.Connect("127.1", peer.port()));  // becomes part of the URLs unchanged
        EXPECT_EQ(client.GetServerName(), "");
        EXPECT_TRUE(client.Setup("/sid=96", 1, 2));
        EXPECT_EQ(client.GetServerRtcpPort(), 6971);
        EXPECT_EQ(client.GetClientRtcpPort(), 2);
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
        "SETUP " + Url(peer, "/sid=96", "127.1") +
            "CSeq: 1\r\nTransport: RTP/AVP;unicast;client_port=1-2\r\n\r\n",
        "TEARDOWN " + Url(peer, "/sid=96", "127.1") + "CSeq: 2\r\n" + id,
    };
    EXPECT_EQ(peer.Requests(), expected);
}

TEST(RtspClient, ReadsSessionAndPorts) {
    const auto ports = [](const std::string& text) {
        return "Session: a\r\nTransport: RTP/AVP;" + text + "\r\n";
    };
    const struct {
        const char* name;
        std::string headers;
        bool works;
        std::uint16_t rtpPort;
        std::uint16_t rtcpPort;
        std::string playSession;  // what the PLAY request names
    } cases[] = {
        {"a pair", ports("server_port=10-20-30;mode=play"), true, 10, 20, "a"},
        {"one port", ports("server_port=10"), true, 10, 11, "a"},
        {"the last one wins", ports("server_port=1-2;;server_port=3-4"), true, 3, 4, "a"},
        {"low 16 bits", ports("server_port=65546-65557"), true, 10, 21, "a"},
        {"two Transport lines", ports("x") + "Transport: server_port=5-6\r\n", false, 0, 0, ""},
        {"hidden by a blank", ports(" server_port=10-11"), false, 0, 0, ""},
        {"the last port", ports("server_port=65535"), false, 65535, 0, ""},
        {"no number", ports("server_port="), false, 0, 1, ""},
        {"signs and blanks", ports("server_port=+10-\t 20"), true, 10, 20, "a"},
        {"a wrapped zero", ports("server_port=10-65536"), false, 10, 0, ""},
        {"no server port", ports("unicast"), false, 0, 0, ""},
        {"no session", "Transport: server_port=1-2\r\n", false, 0, 0, ""},
        {"no transport", "Session: a\r\n", false, 0, 0, ""},
        {"an empty id", "Session: ;timeout=1\r\nTransport: server_port=1-2\r\n", true, 1, 2, ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        CScriptedPeer peer({Ok(), Ok(row.headers), closeConnection});
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

// Each request is refused in several ways. Each time the state stays as it was, and the request
// succeeds when it is repeated. One response contains what all the requests need.
TEST(RtspClient, OnlyASuccessChangesTheState) {
    const std::string body = "v=0\nm=a 0 RTP/AVP 9\n";
    const std::string rest = played + transport + "Content-Type: application/sdp\r\n" +
                             "Content-Length: 20\r\n\r\n" + body;
    const std::string success = "RTSP/1.0 200 OK\r\n" + sameCSeq + rest;
    const Answers refusals = {"RTSP/1.0 500 No\r\n" + sameCSeq + rest,
                              "RTSP/1.0 201 OK\r\n" + sameCSeq + rest, "RTSP/1.0 200 OK\r\n" + rest,
                              "RTSP/1.0 200 OK\r\nCSeq: 99\r\n" + rest};
    std::uint16_t port = 0;
    const struct {
        std::function<bool(CRtspClient&)> send;
        Answers moreRefusals;
    } requests[] = {
        {[&](CRtspClient& client) { return client.Connect("127.0.0.1", port); },
         {closeConnection, "HTTP/1.1 200 OK\r\n\r\n", Ok("Content-Length: 99999\r\n")}},
        {[](CRtspClient& client) { return client.Describe("/").IsValid(); },
         {Ok("", body), Ok("Content-Type: application/sdp;charset=utf-8\r\n", body),
          Ok("Content-Type: application/sdp\r\n")}},
        {[](CRtspClient& client) { return client.Setup("/", 1, 2); }, {Ok(played), Ok(transport)}},
        {&CRtspClient::Play,
         {Ok(), Ok("session: 42\r\n"), Ok("Session: 4\r\n"), Ok("Session: 42;x\r\n")}},
        {&CRtspClient::Pause, {}},
        {&CRtspClient::Teardown, {}},
    };
    constexpr std::size_t setup = 2;
    for (std::size_t refused = 0; refused < std::size(requests); ++refused) {
        for (const std::string& refusal : Joined(refusals, requests[refused].moreRefusals)) {
            SCOPED_TRACE("request " + std::to_string(refused) + ", " + refusal);
            Answers answers(std::size(requests), success);
            answers.insert(answers.begin() + static_cast<int>(refused), refusal);
            CScriptedPeer peer(answers);
            port = peer.port();
            CRtspClient client;
            EXPECT_FALSE(client.Connect("127.0.0.2", port)) << "nobody listens there";
            for (std::size_t i = 0; i < refused; ++i) EXPECT_TRUE(requests[i].send(client));
            EXPECT_FALSE(requests[refused].send(client));
            EXPECT_FALSE(refused == 0 && requests[setup].send(client));
            EXPECT_EQ(client.IsSetUp(), refused > setup);
            EXPECT_EQ(client.IsPlaying(), refused == setup + 2);
            for (std::size_t i = refused; i < std::size(requests); ++i)
                EXPECT_TRUE(requests[i].send(client));
            EXPECT_FALSE(client.IsSetUp() || client.IsPlaying());
            const std::string last = peer.Requests().back();
            EXPECT_NE(last.find(refused == 0 ? "CSeq: 5\r\n" : "CSeq: 6\r\n"), last.npos);
        }
    }
}

// A session that the camera did not end outlives the connection, and prevents another one until it
// has been ended on a later connection.
TEST(RtspClient, ASessionLeftOverIsEndedLater) {
    const std::string no = Refusal("500 No");
    const Answers playing = {Ok("Server: a\r\n"), Ok(session + transport), Ok(played)};
    CScriptedPeer peer(Joined(playing, {no, no, no, Ok(), no, Ok(), no, Ok()}, {playing[1]}));
    const auto connect = [&](CRtspClient& to) { return to.Connect("127.0.0.1", peer.port()); };
    CRtspClient client;
    ASSERT_TRUE(connect(client) && client.Setup("/", 1, 2) && client.Play());
    EXPECT_FALSE(client.Teardown());
    client.Close();
    EXPECT_TRUE(client.IsPlaying() && client.IsSetUp());
    EXPECT_FALSE(connect(client));
    EXPECT_TRUE(!client.IsPlaying() && client.IsSetUp() && client.GetServerName() == "a");
    ASSERT_TRUE(connect(client));
    EXPECT_FALSE(client.Setup("/", 1, 2) || client.Teardown());
    EXPECT_TRUE(client.Teardown() && client.Setup("/", 1, 2));
    EXPECT_EQ(peer.Methods(),
              "OPTIONS SETUP PLAY PAUSE PAUSE OPTIONS PAUSE TEARDOWN OPTIONS TEARDOWN TEARDOWN "
              "SETUP");
}

}  // namespace
