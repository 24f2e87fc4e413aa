/// What a process holds of its system, and waiting for a condition with a deadline.
#pragma once

#include <cstddef>
#include <functional>

namespace test {

std::size_t ThreadCount();
std::size_t DescriptorCount();

/// True as soon as the condition holds; false when it doesn't within 20 s.
bool WaitFor(const std::function<bool()>& condition);

}  // namespace test
