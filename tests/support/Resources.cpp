#include "Resources.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace test {

bool WaitFor(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

CNothingLeft::~CNothingLeft() {
    EXPECT_TRUE(WaitFor([this] { return ThreadCount() == threads; }));
    EXPECT_EQ(DescriptorCount(), descriptors);
}

}  // namespace test
