/// A camera's control side, or its node tree, that follows a script: it records each request and
/// answers with the next of the given bytes, whatever was asked. Behind the last answer it closes
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

/// Closes the connection in place of an answer, or behind a part of one; the next connection goes
/// on with the script.
inline const std::string closeConnection = "<close>";
/// Takes the request and stays silent.
inline const std::string staySilent = "<silent>";

/// "RTSP/1.0 200 OK" with the sequence number, further header lines, each with its CR LF, and body.
std::string Ok(unsigned cseq, const std::string& headers = "", const std::string& body = "");
/// An answer with a description for its body.
std::string Description(unsigned cseq, const std::string& body);

/// What several peers were asked, in one order.
class CJournal {
   public:
    void Add(const std::string& request);
    std::vector<std::string> Requests() const;

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
    /// First words of the requests so far, joined by blanks.
    std::string Methods() const;

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
