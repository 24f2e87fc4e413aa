// The two headers that a session hangs on, "Session" and "Transport", and the number reader below
// them and all other numbers of the control connection.
//
// Input: the text of a header.
#include <cerrno>
#include <string>

#include "FuzzInput.h"
#include "RtspClient.h"
#include "RtspText.h"

namespace {

struct SPorts {
    std::uint16_t rtp;
    std::uint16_t rtcp;
    bool operator==(const SPorts&) const = default;
};

SPorts Read(const std::string& transport, SPorts before) {
    qmx::cam::ParseServerPorts(transport, before.rtp, before.rtcp);
    return before;
}

/// The C library's reader, narrowed to 32 bits.
std::uint32_t ReadByLibrary(const std::string& text) {
    const std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
    const bool negative = at != std::string::npos && text[at] == '-';
    errno = 0;
    const unsigned long long number = std::strtoull(text.c_str(), nullptr, 10);
    const unsigned long long size = negative ? 0 - number : number;
    if (errno == ERANGE || size > 0xFFFFFFFF) return 0xFFFFFFFF;
    return static_cast<std::uint32_t>(number);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(fuzz::AsText({data, size}));

    const std::string id = qmx::cam::ParseSessionId(text);
    FUZZ_REQUIRE(id.find(';') == std::string::npos && text.starts_with(id));
    FUZZ_REQUIRE(id.size() == text.size() || text[id.size()] == ';');

    // Either the text decides both ports or it decides none.
    const SPorts first{1, 2};
    const SPorts second{30001, 30002};
    const SPorts fromFirst = Read(text, first);
    const SPorts fromSecond = Read(text, second);
    FUZZ_REQUIRE(fromFirst == fromSecond || (fromFirst == first && fromSecond == second));
    const bool named = text.find("server_port=") != std::string::npos;
    if (!named) FUZZ_REQUIRE(fromFirst == first && fromSecond == second);
    // The last one counts, whatever stands before it.
    FUZZ_REQUIRE((Read(text + ";server_port=40000-40009", first) == SPorts{40000, 40009}));
    FUZZ_REQUIRE((Read(text + ";server_port=65535", first) == SPorts{65535, 0}));

    FUZZ_REQUIRE(qmx::cam::ParseUnsigned(text) == ReadByLibrary(text));
    const qmx::cam::CRtspHeaders headers{{"CSeq", text}, {"Session", text}};
    FUZZ_REQUIRE(qmx::cam::CheckCSeq(headers, ReadByLibrary(text)));
    FUZZ_REQUIRE(qmx::cam::CheckSession(headers, text));
    FUZZ_REQUIRE(!qmx::cam::CheckSession(headers, text + ';'));
    return 0;
}
