/// A camera's control side, or its node tree, that follows a script: it records each request and
/// answers with the next of the given bytes, whatever was asked, on one connection at a time. After
/// the last answer it closes each connection.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Socket.h"

namespace test {

/// Closes the connection in place of an answer, or behind a part of one; the next connection goes
/// on with the script.
inline const std::string closeConnection = "<close>";
/// Takes the request and stays silent.
inline const std::string staySilent = "<silent>";

/// In place of a response's sequence number: the peer repeats the one of the request.
inline const std::string sameCSeq = "CSeq: #\r\n";

/// Returns "RTSP/1.0 200 OK" with a sequence number, more header lines, each with its CR LF, and a
/// body. Without a number it is that of the request.
std::string Ok(unsigned cseq, const std::string& headers = "", const std::string& body = "");
std::string Ok(const std::string& headers = "", const std::string& body = "");
/// Returns a response with a description for its body.
std::string Description(unsigned cseq, const std::string& body);
std::string Description(const std::string& body);
/// Returns a response that refuses the request.
inline std::string Refusal(const std::string& status = "404 Not Found") {
    return "RTSP/1.0 " + status + "\r\n" + sameCSeq + "\r\n";
}

using Answers = std::vector<std::string>;
/// Returns the parts of a script as one.
Answers Joined(Answers first, const Answers& second, const Answers& third = {},
               const Answers& fourth = {});

/// Returns the number of threads of this process, counted before its first peer began: the system
/// may list a thread for a moment after it was joined.
std::size_t ThreadsWithoutPeers();

/// What several peers were asked, in one order.
class CJournal {
   public:
    void Add(const std::string& request);
    std::vector<std::string> Requests() const;
    /// First words of the requests so far, joined by blanks.
    std::string Methods() const;

   private:
    mutable std::mutex lock;
    std::vector<std::string> requests;
};

class CScriptedPeer {
   public:
    /// Listens on an address; port 0 lets the system pick one.
    explicit CScriptedPeer(std::vector<std::string> answers, const char* address = "127.0.0.1",
                           std::uint16_t port = 0, std::string requestEnd = "\r\n\r\n");
    /// Also writes each request to a journal; before the first request comes.
    void WriteTo(CJournal& shared) { journal = &shared; }
    ~CScriptedPeer();

    std::uint16_t port() const { return localPort; }
    /// The requests so far, each with its end.
    std::vector<std::string> Requests() const { return own.Requests(); }
    std::string Methods() const { return own.Methods(); }

   private:
    void Run();
    void ServeConnection(const platform::CSocket& connection);

    const std::vector<std::string> script;
    const std::string end;
    std::size_t next = 0;
    const platform::CSocket listener;
    const std::uint16_t localPort;
    std::atomic<bool> ending{false};
    CJournal own;
    std::atomic<CJournal*> journal{nullptr};
    std::thread thread;
};

}  // namespace test
