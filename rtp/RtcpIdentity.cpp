#include "RtcpIdentity.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "Socket.h"

namespace qmx::cam {

HostNameBuffer OwnHostName() noexcept {
    HostNameBuffer name{};
    if (!platform::HostName(name.data(), name.size())) std::strcpy(name.data(), "localhost");
    return name;
}

SsrcBytes MakeSsrc() noexcept {
    HostNameBuffer bytes = OwnHostName();
    std::srand(static_cast<unsigned>(std::clock()));
    for (std::size_t i = std::strlen(bytes.data()); i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(std::rand());
    }
    SsrcBytes ssrc{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        ssrc[i % ssrc.size()] ^= static_cast<std::uint8_t>(bytes[i]);
    }
    return ssrc;
}

}  // namespace qmx::cam
