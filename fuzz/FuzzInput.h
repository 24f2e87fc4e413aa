/// Shared by all fuzz targets: splits an input into values, and checks invariants.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>
#include <vector>

/// Aborts the process, which counts as a finding, if an invariant does not hold. Also works in
/// builds without assertions.
#define FUZZ_REQUIRE(condition)                                               \
    do {                                                                      \
        if (!(condition)) fuzz::EndAsFinding(__FILE__, __LINE__, #condition); \
    } while (false)

namespace fuzz {

[[noreturn]] inline void EndAsFinding(const char* file, int line, const char* condition) {
    (void)std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    std::abort();
}

/// A heap copy of exact size, so that the address sanitizer detects a read past its end. Inputs and
/// strings may be followed by spare room.
using ExactBytes = std::vector<std::uint8_t>;

[[nodiscard]] inline ExactBytes ExactCopy(std::span<const std::uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

[[nodiscard]] inline std::string_view AsText(std::span<const std::uint8_t> bytes) noexcept {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Extracts values from the front of an input; zeros at its end.
class CFuzzInput {
   public:
    CFuzzInput(const std::uint8_t* data, std::size_t size) noexcept : rest(data, size) {}

    [[nodiscard]] bool empty() const noexcept { return rest.empty(); }
    /// Returns an unsigned big-endian integer.
    template <class Integer>
    [[nodiscard]] Integer Take() noexcept {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < sizeof(Integer); ++i) {
            value <<= 8;
            for (const std::uint8_t byte : TakeBytes(1)) value |= byte;
        }
        return static_cast<Integer>(value);
    }
    /// Returns the next bytes, or as many as there are.
    [[nodiscard]] std::span<const std::uint8_t> TakeBytes(std::size_t count) noexcept {
        const auto taken = rest.first(std::min(count, rest.size()));
        rest = rest.subspan(taken.size());
        return taken;
    }
    [[nodiscard]] std::span<const std::uint8_t> TakeRest() noexcept {
        return TakeBytes(rest.size());
    }

   private:
    std::span<const std::uint8_t> rest;
};

}  // namespace fuzz
