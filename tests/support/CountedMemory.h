/// Counts allocations: in a program that is linked with the wrapping of CMakeLists.txt.
#pragma once

#include <cstddef>

namespace test {

/// How often the calling thread has asked for memory.
std::size_t AllocationCount() noexcept;

}  // namespace test
