#include "ScriptedPeer.h"

#include <utility>

#include "Resources.h"
#include "Sockets.h"

namespace test {
namespace {

constexpr char sdp[] = "Content-Type: application/sdp\r\n";

/// Inserts the sequence number of the request into a response.
std::string Numbered(std::string answer, const std::string& request) {
    const std::size_t place = answer.find(sameCSeq);
    if (place == std::string::npos) return answer;
    const std::size_t number = request.find("CSeq: ");
    const std::size_t end = request.find("\r\n", number);
    return answer.replace(place, sameCSeq.size() - 2, request.substr(number, end - number));
}

}  // namespace

std::string Ok(const std::string& headers, const std::string& body) {
    std::string answer = "RTSP/1.0 200 OK\r\n" + sameCSeq + headers;
    if (!body.empty()) answer += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    return answer + "\r\n" + body;
}

std::string Ok(unsigned cseq, const std::string& headers, const std::string& body) {
    return Numbered(Ok(headers, body), "CSeq: " + std::to_string(cseq) + "\r\n");
}

std::string Description(const std::string& body) { return Ok(sdp, body); }
std::string Description(unsigned cseq, const std::string& body) { return Ok(cseq, sdp, body); }

Answers Joined(Answers first, const Answers& second, const Answers& third, const Answers& fourth) {
    for (const Answers* const next : {&second, &third, &fourth}) {
        first.insert(first.end(), next->begin(), next->end());
    }
    return first;
}

std::size_t ThreadsWithoutPeers() {
    static const std::size_t threads = ThreadCount();
    return threads;
}

void CJournal::Add(const std::string& request) {
    const std::lock_guard<std::mutex> guard(lock);
    requests.push_back(request);
}

std::vector<std::string> CJournal::Requests() const {
    const std::lock_guard<std::mutex> guard(lock);
    return requests;
}

CScriptedPeer::CScriptedPeer(std::vector<std::string> answers, const char* address,
                             std::uint16_t port, std::string requestEnd)
    : script(std::move(answers)),
      end(std::move(requestEnd)),
      listener(Listen(address, port)),
      localPort(platform::LocalPort(listener.handle()).value()) {
    (void)ThreadsWithoutPeers();
    thread = std::thread([this] { Run(); });
}

CScriptedPeer::~CScriptedPeer() {
    ending = true;
    thread.join();
}

std::string CJournal::Methods() const {
    std::string methods;
    for (const std::string& request : Requests()) {
        methods += (methods.empty() ? "" : " ") + request.substr(0, request.find(' '));
    }
    return methods;
}

namespace {

/// Waits until there is something to read. Returns false at the end of the test.
bool WaitReadable(const platform::CSocket& socket, const std::atomic<bool>& ending) {
    while (!ending) {
        if (Readable(socket, 20)) return true;
    }
    return false;
}

}  // namespace

void CScriptedPeer::Run() {
    while (WaitReadable(listener, ending)) {
        const platform::CSocket connection = Accept(listener);
        if (connection.valid()) ServeConnection(connection);
    }
}

void CScriptedPeer::ServeConnection(const platform::CSocket& connection) {
    std::string request;
    char byte = 0;
    while (WaitReadable(connection, ending) &&
           platform::Receive(connection.handle(), &byte, 1) == 1) {
        request += byte;
        if (!request.ends_with(end)) continue;
        own.Add(request);
        if (CJournal* const shared = journal) shared->Add(request);
        const std::string answer =
            next < script.size() ? Numbered(script[next++], request) : closeConnection;
        request.clear();
        const bool closing = answer.ends_with(closeConnection);
        const std::size_t size = answer.size() - (closing ? closeConnection.size() : 0);
        if (answer != staySilent) (void)platform::Send(connection.handle(), answer.data(), size);
        if (closing) return;
    }
}

}  // namespace test
