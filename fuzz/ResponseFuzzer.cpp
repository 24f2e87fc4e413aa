// The response reader. The socket is a script: it delivers the bytes in the pieces that the input
// asks for, which no real socket does on demand, and counts the bytes that were taken.
//
// Input: 2 bytes for how many bytes arrive in pieces, 1 byte for the length of those pieces, then
// the bytes of the connection.
#include <cstring>

#include "FuzzInput.h"
#include "RtspResponse.h"
#include "RtspText.h"

namespace {

struct SScript {
    std::span<const std::uint8_t> bytes;
    std::size_t inPieces;   // this many bytes come in pieces, the rest at once
    std::size_t pieceSize;  // 0: nothing comes in pieces
    std::size_t taken = 0;
    std::size_t asked = 0;  // largest receive
};

SScript* script = nullptr;

std::size_t WaitingNow() {
    const std::size_t left = script->bytes.size() - script->taken;
    if (script->pieceSize == 0 || script->taken >= script->inPieces) return left;
    return std::min(script->pieceSize - script->taken % script->pieceSize, left);
}

}  // namespace

std::ptrdiff_t platform::Receive(SocketHandle, void* buffer, std::size_t size) noexcept {
    const std::size_t count = std::min(size, WaitingNow());
    if (count != 0) std::memcpy(buffer, &script->bytes[script->taken], count);
    script->taken += count;
    script->asked = std::max(script->asked, size);
    return static_cast<std::ptrdiff_t>(count);
}

namespace {

/// With runs, the byte F5, 2 bytes for a count and one more byte mean that many of that byte: a
/// short input then reaches the limits of a line and of a body, at the price of many bytes to read.
constexpr bool runs = KORU_LONG_RESPONSES;
/// Marks a run. Neither a header nor UTF-8 contains this byte.
constexpr std::uint8_t runByte = 0xF5;
/// More than the longest head and body that the reader accepts in one response.
constexpr std::size_t bytesMost = 49152;

fuzz::ExactBytes Bytes(fuzz::CFuzzInput& input) {
    fuzz::ExactBytes bytes;
    while (!input.empty()) {
        auto byte = input.Take<std::uint8_t>();
        std::size_t count = 1;
        if (runs && byte == runByte) {
            count = input.Take<std::uint16_t>();
            byte = input.Take<std::uint8_t>();
        }
        bytes.insert(bytes.end(), std::min(count, bytesMost - bytes.size()), byte);
    }
    return bytes;
}

struct SResponse {
    std::int32_t status;
    qmx::cam::CRtspHeaders headers;
    std::string body;
    std::size_t taken;
    bool operator==(const SResponse&) const = default;
};

SResponse Read(std::span<const std::uint8_t> bytes, std::size_t inPieces, std::size_t pieceSize) {
    SScript connection{bytes, inPieces, pieceSize};
    script = &connection;
    SResponse response{0, {{"left over", "x"}}, "left over", 0};
    response.status = qmx::cam::ReadResponse(0, response.headers, response.body);
    response.taken = connection.taken;
    FUZZ_REQUIRE(connection.asked <= qmx::cam::bodyLimit);
    return response;
}

/// Returns the end of the head of a response: after the first empty line.
std::size_t HeadEnd(std::string_view text) {
    bool empty = false;  // false at first: the first line is the status line
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && empty) return i + 1;
        if (text[i] == '\n') empty = true;
        if (text[i] != '\n' && text[i] != '\r') empty = false;
    }
    return text.size();
}

void Check(const SResponse& response, std::string_view text) {
    const std::size_t headEnd = HeadEnd(text);
    FUZZ_REQUIRE(response.body.size() <= qmx::cam::bodyLimit);
    FUZZ_REQUIRE(response.taken <= headEnd + response.body.size());
    for (const auto& [name, value] : response.headers)
        FUZZ_REQUIRE(!name.empty() && !value.empty());
    if (response.status == qmx::cam::noResponse) return;
    // The body is complete, and nothing after it has been read.
    FUZZ_REQUIRE(response.taken == headEnd + response.body.size());
    FUZZ_REQUIRE(response.body == text.substr(headEnd, response.body.size()));
    const auto length = response.headers.find("Content-Length");
    FUZZ_REQUIRE(response.body.size() ==
                 (length == response.headers.end() ? 0 : qmx::cam::ParseUnsigned(length->second)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::CFuzzInput input(data, size);
    const std::size_t inPieces = input.Take<std::uint16_t>();
    const std::size_t pieceSize = input.Take<std::uint8_t>();
    const fuzz::ExactBytes bytes = Bytes(input);
    const std::string_view text = fuzz::AsText(bytes);

    const SResponse whole = Read(bytes, 0, 0);
    Check(whole, text);
    const SResponse pieces = Read(bytes, inPieces, pieceSize);
    Check(pieces, text);
    // Splitting the head makes no difference; splitting the body may only turn success into
    // failure.
    FUZZ_REQUIRE(pieces == Read(bytes, inPieces, pieceSize));
    FUZZ_REQUIRE(pieces.headers == whole.headers);
    FUZZ_REQUIRE(pieces.status == whole.status || pieces.status == qmx::cam::noResponse);
    FUZZ_REQUIRE(Read(bytes, std::min(inPieces, HeadEnd(text)), 1) == whole);
    return 0;
}
