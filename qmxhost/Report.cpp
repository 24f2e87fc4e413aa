#include "Report.h"

#include <algorithm>
#include <cstdio>

namespace qmxhost {

void PrintJson(const Json& value) {
    const std::string line = value.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void Complain(const std::string& text) { std::fprintf(stderr, "qmxhost: %s\n", text.c_str()); }

std::string Printable(std::string text) {
    constexpr unsigned char firstPlain = 0x20;
    constexpr unsigned char del = 0x7F;
    std::ranges::replace_if(
        text,
        [](char letter) {
            const auto code = static_cast<unsigned char>(letter);
            return code < firstPlain || code == del;
        },
        '?');
    return text;
}

void Advise(const std::string& text) { std::fprintf(stderr, "%s\n", text.c_str()); }

}  // namespace qmxhost
