/// What a process holds of its system, and waiting for a condition with a deadline.
#pragma once

#include <cstddef>
#include <functional>

namespace test {

/// Threads of this process. The first call makes a thread, so that what a sanitizer starts with the
/// first one is there before anybody counts.
std::size_t ThreadCount();
std::size_t DescriptorCount();

/// True as soon as the condition holds; false when it doesn't within 20 s.
bool WaitFor(const std::function<bool()>& condition);

}  // namespace test
