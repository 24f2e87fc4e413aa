#include "Resources.h"

#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

namespace test {
namespace {

std::size_t EntryCount(const char* folder) {
    using Iterator = std::filesystem::directory_iterator;
    return static_cast<std::size_t>(std::distance(Iterator(folder), Iterator()));
}

}  // namespace

std::size_t ThreadCount() {
    static const bool once = [] {
        pid_t id = 0;
        std::thread([&] { id = ::gettid(); }).join();
        // The system forgets a thread a moment after it has been joined.
        const std::string entry = "/proc/self/task/" + std::to_string(id);
        return WaitFor([&] { return !std::filesystem::exists(entry); });
    }();
    return once ? EntryCount("/proc/self/task") : 0;
}
std::size_t DescriptorCount() { return EntryCount("/proc/self/fd"); }

}  // namespace test
