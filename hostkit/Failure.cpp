#include "Failure.h"

#include <algorithm>

namespace hostkit {

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

}  // namespace hostkit
