#include "ScriptedPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace test {

std::string Ok(unsigned cseq, const std::string& headers, const std::string& body) {
    std::string answer = "RTSP/1.0 200 OK\r\nCSeq: " + std::to_string(cseq) + "\r\n" + headers;
    if (!body.empty()) answer += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    return answer + "\r\n" + body;
}

std::string Description(unsigned cseq, const std::string& body) {
    return Ok(cseq, "Content-Type: application/sdp\r\n", body);
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
      listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    local.sin_addr.s_addr = ::inet_addr(address);
    auto* const plain = reinterpret_cast<sockaddr*>(&local);
    socklen_t size = sizeof(local);
    const int on = 1;
    ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (::bind(listener, plain, size) != 0 || ::listen(listener, 4) != 0 ||
        ::getsockname(listener, plain, &size) != 0) {
        throw std::runtime_error(std::string("scripted peer: ") + std::strerror(errno));
    }
    localPort = ntohs(local.sin_port);
    thread = std::thread([this] { Run(); });
}

CScriptedPeer::~CScriptedPeer() {
    ending = true;
    thread.join();
    ::close(listener);
}

std::string CScriptedPeer::Methods() const {
    std::string methods;
    for (const std::string& request : Requests()) {
        methods += (methods.empty() ? "" : " ") + request.substr(0, request.find(' '));
    }
    return methods;
}

namespace {

/// Waits until there is something to read; false when the test is over.
bool WaitReadable(int descriptor, const std::atomic<bool>& ending) {
    while (!ending) {
        pollfd waiting{descriptor, POLLIN, 0};
        if (::poll(&waiting, 1, 20) > 0) return true;
    }
    return false;
}

}  // namespace

void CScriptedPeer::Run() {
    while (WaitReadable(listener, ending)) {
        const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        ServeConnection(connection);
        ::close(connection);
    }
}

void CScriptedPeer::ServeConnection(int connection) {
    std::string request;
    char byte = 0;
    while (WaitReadable(connection, ending) && ::recv(connection, &byte, 1, 0) == 1) {
        request += byte;
        if (!request.ends_with(end)) continue;
        own.Add(request);
        if (CJournal* const shared = journal) shared->Add(request);
        request.clear();
        const std::string answer = next < script.size() ? script[next++] : closeConnection;
        const bool closing = answer.ends_with(closeConnection);
        const std::size_t size = answer.size() - (closing ? closeConnection.size() : 0);
        if (answer != staySilent) ::send(connection, answer.data(), size, MSG_NOSIGNAL);
        if (closing) return;
    }
}

}  // namespace test
