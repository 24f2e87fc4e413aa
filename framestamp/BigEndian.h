/// Big-endian fields of network headers. The caller must have checked that the bytes exist.
#pragma once

#include <cstdint>

namespace bigendian {

inline void Put16(std::uint8_t* to, std::uint32_t value) {
    to[0] = static_cast<std::uint8_t>(value >> 8);
    to[1] = static_cast<std::uint8_t>(value);
}

inline void Put32(std::uint8_t* to, std::uint32_t value) {
    Put16(to, value >> 16);
    Put16(to + 2, value);
}

[[nodiscard]] inline std::uint16_t Get16(const std::uint8_t* from) {
    return static_cast<std::uint16_t>(from[0] << 8 | from[1]);
}

[[nodiscard]] inline std::uint32_t Get32(const std::uint8_t* from) {
    return static_cast<std::uint32_t>(Get16(from)) << 16 | Get16(from + 2);
}

}  // namespace bigendian
