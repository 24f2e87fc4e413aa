// The node tree protocol of the stand-in: reply lines in, request lines out.
//
// Input: a line, which is taken as a reply and as a path.
#include <cmath>
#include <string>

#include "FuzzInput.h"
#include "NodeReply.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::ExactBytes bytes = fuzz::ExactCopy({data, size});
    const std::string_view line = fuzz::AsText(bytes);

    const auto text = arbor::ReadString(line);
    const auto flag = arbor::ReadBool(line);
    const auto number = arbor::ReadDouble(line);
    // A reply says one thing.
    const int meanings =
        (arbor::IsDone(line) ? 1 : 0) + (text ? 1 : 0) + (flag ? 1 : 0) + (number ? 1 : 0);
    FUZZ_REQUIRE(meanings <= 1);
    if (text) {
        FUZZ_REQUIRE(line.ends_with(*text) && text->find('\0') == std::string_view::npos);
    }
    if (number) {
        FUZZ_REQUIRE(std::isfinite(*number));
        const auto request = arbor::SetRequest("/p", *number);
        FUZZ_REQUIRE(request && request->starts_with("SET /p double "));
        const auto back = arbor::ReadDouble("OK double " + request->substr(14));
        FUZZ_REQUIRE(back && *back == *number);
    }
    if (arbor::IsSendable(line)) {
        // Two words on one line, which the path can't break.
        for (const std::string& request : {arbor::VerifyRequest(line), arbor::GetRequest(line)}) {
            FUZZ_REQUIRE(request.size() <= arbor::maxPathBytes + sizeof("VERIFY"));
            FUZZ_REQUIRE(request.find_first_of("\r\n\t") == std::string::npos);
            FUZZ_REQUIRE(std::count(request.begin(), request.end(), ' ') == 1);
        }
    }
    return 0;
}
