/// A scripted RTSP server or node tree: it records each request and sends the next response of the
/// script regardless of the request, on one connection at a time. After the last response it closes
/// each connection.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Socket.h"

namespace test {

/// Closes the connection, possibly after a part of a response. The script continues on the next
/// one.
inline const std::string closeConnection = "<close>";
/// Receives the request and sends nothing.
inline const std::string staySilent = "<silent>";

/// Replaced by the sequence number of the request.
inline const std::string sameCSeq = "CSeq: #\r\n";

/// Returns "RTSP/1.0 200 OK" with a sequence number, by default that of the request, more header
/// lines, each with its CR LF, and a body.
std::string Ok(unsigned cseq, const std::string& headers = "", const std::string& body = "");
std::string Ok(const std::string& headers = "", const std::string& body = "");
/// Returns a response whose body is a description.
std::string Description(unsigned cseq, const std::string& body);
std::string Description(const std::string& body);
/// Returns a response that refuses the request.
inline std::string Refusal(const std::string& status = "404 Not Found") {
    return "RTSP/1.0 " + status + "\r\n" + sameCSeq + "\r\n";
}

using Answers = std::vector<std::string>;
/// Concatenates parts of a script.
Answers Joined(Answers first, const Answers& second, const Answers& third = {},
               const Answers& fourth = {});

/// Returns the number of threads of this process before its first peer. Counted then, because the
/// system may list a thread briefly after it was joined.
std::size_t ThreadsWithoutPeers();

/// The requests to several peers in their order.
class CJournal {
   public:
    void Add(const std::string& request);
    std::vector<std::string> Requests() const;
    /// Returns the first words of the requests, separated by blanks.
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
    /// Also writes each request to a journal. Call it before the first request.
    void WriteTo(CJournal& shared) { journal = &shared; }
    ~CScriptedPeer();

    std::uint16_t port() const { return localPort; }
    /// Returns the requests so far, each with its end.
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
