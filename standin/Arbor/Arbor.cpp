// Stand-in for the node tree library: a client of the line protocol that the camera simulator
// implements. Each call has one time limit, so that a peer that sends single bytes cannot block the
// caller.
#include "Arbor.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "NodeReply.h"
#include "Socket.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint16_t nodeTreePort = 4554;
/// Time limit of a connection attempt and of each exchange.
constexpr std::chrono::milliseconds callLimit{2000};

constexpr std::int32_t success = 0;
constexpr std::int32_t failure = -1;

/// A connection to one camera. After a failed exchange the peer might still reply, and that reply
/// would be taken for the next one's; therefore the connection is closed at once and stays closed.
/// Thread-safe.
class CNodeConnection {
   public:
    [[nodiscard]] bool Connect(const char* address);
    /// Sends one request line. Returns the reply line without its line end, or nothing.
    [[nodiscard]] std::optional<std::string> Exchange(std::string request);

   private:
    [[nodiscard]] std::optional<std::string> ReadLine(Clock::time_point end);

    std::mutex turn;
    platform::CSocket socket;
};

bool CNodeConnection::Connect(const char* address) {
    const auto numeric = platform::ParseIpv4(address);
    if (!numeric) return false;
    socket.Reset(platform::OpenTcpSocket());
    const auto limit = static_cast<std::uint32_t>(callLimit.count());
    return socket.valid() &&
           platform::ConnectWithTimeout(
               socket.handle(), platform::MakeSocketAddress(*numeric, nodeTreePort), limit) &&
           platform::SetSendTimeout(socket.handle(), limit);
}

std::optional<std::string> CNodeConnection::Exchange(std::string request) {
    const std::lock_guard<std::mutex> guard(turn);
    if (!socket.valid()) return std::nullopt;
    const Clock::time_point end = Clock::now() + callLimit;
    request += '\n';
    const auto sent = platform::Send(socket.handle(), request.data(), request.size());
    std::optional<std::string> reply;
    if (sent == static_cast<std::ptrdiff_t>(request.size())) reply = ReadLine(end);
    if (!reply) socket.Reset();
    return reply;
}

std::optional<std::string> CNodeConnection::ReadLine(Clock::time_point end) {
    std::string line;
    char piece[512];
    while (line.size() <= arbor::maxReplyBytes) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0) return std::nullopt;
        platform::SetReceiveTimeout(socket.handle(), static_cast<std::uint32_t>(left.count()));
        const auto received = platform::Receive(socket.handle(), piece, sizeof(piece));
        if (received <= 0) return std::nullopt;
        line.append(piece, static_cast<std::size_t>(received));
        const std::size_t lineEnd = line.find('\n');
        if (lineEnd == std::string::npos) continue;
        // More bytes after the line belong to no request: the peer is out of step.
        if (lineEnd + 1 != line.size()) return std::nullopt;
        line.pop_back();
        return line;
    }
    return std::nullopt;
}

CNodeConnection* FromHandle(ArbHandle handle) {
    return reinterpret_cast<CNodeConnection*>(static_cast<std::uintptr_t>(handle));
}

/// No exception may cross the C interface. Only `std::bad_alloc` is to be expected.
template <class Call>
std::int32_t Guarded(Call call) noexcept {
    try {
        return call() ? success : failure;
    } catch (const std::exception&) {
        return failure;
    }
}

/// Returns the path if it may be part of a request and the connection exists; otherwise nothing.
std::optional<std::string_view> UsablePath(ArbHandle connection, const char* path) {
    if (connection == 0 || path == nullptr || !arbor::IsSendable(path)) return std::nullopt;
    return path;
}

/// Requests the value of a node and passes the reply to a parser such as `arbor::ReadBool`.
template <class Reader>
auto GetValue(ArbHandle connection, const char* path, Reader reader)
    -> std::invoke_result_t<Reader, std::string_view> {
    const auto usable = UsablePath(connection, path);
    if (!usable) return std::nullopt;
    const auto reply = FromHandle(connection)->Exchange(arbor::GetRequest(*usable));
    if (!reply) return std::nullopt;
    return reader(std::string_view(*reply));
}

/// Returns a copy for `arbFreeString`, or null if there is no memory.
char* CopyText(std::string_view text) {
    char* const copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) return nullptr;
    if (!text.empty()) std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

std::int32_t EndConnection(ArbHandle connection) {
    if (connection == 0) return failure;
    delete FromHandle(connection);
    return success;
}

}  // namespace

std::int32_t arbConnect(ArbHandle* connection, const char* address, std::int32_t) {
    if (connection == nullptr || address == nullptr) return failure;
    return Guarded([&] {
        auto made = std::make_unique<CNodeConnection>();
        if (!made->Connect(address)) return false;
        *connection = reinterpret_cast<std::uintptr_t>(made.release());
        return true;
    });
}

std::int32_t arbVerify(ArbHandle connection, const char* path) {
    return Guarded([&] {
        const auto usable = UsablePath(connection, path);
        if (!usable) return false;
        const auto reply = FromHandle(connection)->Exchange(arbor::VerifyRequest(*usable));
        return reply && arbor::IsDone(*reply);
    });
}

std::int32_t arbGetString(ArbHandle connection, const char* path, char** text) {
    if (text == nullptr) return failure;
    return Guarded([&] {
        // The parsed text is a view into the reply, so it is copied before the reply is destroyed.
        const auto copy = GetValue(connection, path, [](std::string_view line) {
            const auto found = arbor::ReadString(line);
            return found ? std::optional<char*>(CopyText(*found)) : std::nullopt;
        });
        if (!copy || *copy == nullptr) return false;
        *text = *copy;
        return true;
    });
}

std::int32_t arbFreeString(char** text) {
    if (text == nullptr) return failure;
    std::free(*text);
    *text = nullptr;
    return success;
}

std::int32_t arbGetBool(ArbHandle connection, const char* path, std::uint8_t* flag) {
    if (flag == nullptr) return failure;
    return Guarded([&] {
        const auto value = GetValue(connection, path, arbor::ReadBool);
        if (value) *flag = *value ? 1 : 0;
        return value.has_value();
    });
}

std::int32_t arbGetDouble(ArbHandle connection, const char* path, double* value) {
    if (value == nullptr) return failure;
    return Guarded([&] {
        const auto found = GetValue(connection, path, arbor::ReadDouble);
        if (found) *value = *found;
        return found.has_value();
    });
}

std::int32_t arbSetDouble(ArbHandle connection, const char* path, double value, std::int32_t) {
    return Guarded([&] {
        const auto usable = UsablePath(connection, path);
        if (!usable) return false;
        const auto request = arbor::SetRequest(*usable, value);
        if (!request) return false;
        const auto reply = FromHandle(connection)->Exchange(*request);
        return reply && arbor::IsDone(*reply);
    });
}

std::int32_t arbDisconnect(ArbHandle connection) { return EndConnection(connection); }
std::int32_t arbDestroy(ArbHandle connection) { return EndConnection(connection); }
