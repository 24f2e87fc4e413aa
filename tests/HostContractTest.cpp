// The memory rules of the host's templates, on which the plug-in relies.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

#include "qmx.h"
#include "qmxcam.h"

namespace {

using namespace qmx;

/// Counts the existing objects.
struct SCounted {
    static inline int alive = 0;
    int value = 0;
    explicit SCounted(int given) : value(given) { ++alive; }
    SCounted(const SCounted& other) : value(other.value) { ++alive; }
    SCounted(SCounted&& other) noexcept : value(std::exchange(other.value, -1)) { ++alive; }
    SCounted& operator=(SCounted&& other) noexcept {
        value = std::exchange(other.value, -1);
        return *this;
    }
    ~SCounted() { --alive; }
};

std::string Values(const TArray<SCounted>& array) {
    std::string text;
    for (const SCounted& entry : array) text += std::to_string(entry.value);
    return text;
}

TEST(HostArray, CopiesMovesAndRemovesInPlace) {
    {
        TArray<SCounted> array;
        for (int i = 0; i < 8; ++i) array.append(SCounted(i));
        struct {
            std::size_t index;
            std::size_t number;
            const char* left;
        } const steps[] = {{1, 2, "034567"}, {0, 0, "034567"}, {4, 99, "0345"}, {0, 99, ""}};
        for (const auto& step : steps) {
            array.remove(step.index, step.number);
            EXPECT_EQ(Values(array), step.left);
            EXPECT_EQ(SCounted::alive, static_cast<int>(array.count()));
        }
        EXPECT_THROW(array.remove(0, 0), std::out_of_range);
        EXPECT_THROW(array.reserve(static_cast<std::size_t>(-1) / 4), std::bad_alloc);
        array.append(SCounted(1));
        TArray<SCounted> copy = array;
        const TArray<SCounted> moved = std::move(array);
        EXPECT_EQ(Values(copy) + Values(moved), "11");
        copy = moved;
        EXPECT_EQ(SCounted::alive, 2);
    }
    EXPECT_EQ(SCounted::alive, 0);
}

// A plug-in's function may use the factory that calls it.
TEST(HostFactory, CallsThePluginWithoutItsLock) {
    using namespace qmx::cam;
    struct SInterface final : IInterface {
        TSharedPtr<IDevice> CreateDevice() override { return {}; }
        bool EnumerateDevices(DeviceSink) override { return true; }
    };
    const auto create = [] {
        EXPECT_EQ(interfaceFactory().CreateInterface("none"), nullptr);
        return static_cast<IInterface*>(new SInterface);
    };
    const auto destroy = [](IInterface* object) {
        interfaceFactory().DestroyInterface("none", object);
        delete object;
    };
    EXPECT_TRUE(interfaceFactory().RegisterInterface("test", create, destroy));
    EXPECT_FALSE(interfaceFactory().RegisterInterface("test", create, destroy));
    IInterface* const made = interfaceFactory().CreateInterface("test");
    ASSERT_NE(made, nullptr);
    interfaceFactory().DestroyInterface("test", made);
}

// Two threads write and two read continually; a faulty lock lets them see half a change, or blocks
// them.
TEST(HostLocks, OneWriterOrManyReaders) {
    CSRWLock lock;
    int first = 0;
    int second = 0;
    std::atomic<int> torn{0};
    constexpr int turns = 5000;
    const auto work = [&](int step) {
        for (int i = 0; i < turns; ++i) {
            step != 0 ? lock.WriteLock() : lock.ReadLock();
            const int before = step != 0 ? first += step : first;
            std::this_thread::yield();  // so that the other threads find the lock held
            if (before != (step != 0 ? second += step : second)) ++torn;
            step != 0 ? lock.WriteUnlock() : lock.ReadUnlock();
        }
    };
    {
        const std::jthread threads[] = {std::jthread(work, 1), std::jthread(work, 0),
                                        std::jthread(work, 1), std::jthread(work, 0)};
    }
    EXPECT_EQ(first, 2 * turns);
    EXPECT_EQ(torn, 0);
}

}  // namespace
