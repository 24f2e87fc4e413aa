/// Counts resources of the process, and waits for conditions.
#pragma once

#include <cstddef>
#include <functional>

namespace test {

/// Returns the number of threads of this process. The first call starts a thread and waits for its
/// end, because a sanitizer starts one of its own with the first thread.
std::size_t ThreadCount();
std::size_t DescriptorCount();

/// Returns true as soon as the condition holds, false if it does not within 20 s.
bool WaitFor(const std::function<bool()>& condition);

/// Fails the test if its scope ends with other numbers of threads and descriptors than it began
/// with. Threads that have ended have 20 s to vanish.
class CNothingLeft {
   public:
    CNothingLeft() = default;
    CNothingLeft(const CNothingLeft&) = delete;
    CNothingLeft& operator=(const CNothingLeft&) = delete;
    ~CNothingLeft();

   private:
    const std::size_t threads = ThreadCount();
    const std::size_t descriptors = DescriptorCount();
};

}  // namespace test
