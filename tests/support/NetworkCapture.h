/// Captures loopback into a file.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Program.h"
#include "Resources.h"

namespace test {

class CNetworkCapture {
   public:
    explicit CNetworkCapture(std::string to)
        : file(std::move(to)), tshark({"tshark", "-q", "-i", "lo", "-w", file}) {
        // The file appears only when the capture runs.
        const auto running = [&] { return std::filesystem::exists(file); };
        EXPECT_TRUE(WaitFor(running)) << tshark.Errors();
    }
    /// Ends the capture when a packet that matches the filter is in the file.
    void EndAfter(const std::string& filter) {
        EXPECT_TRUE(WaitFor([&] { return !Read({"-Y", filter}).empty(); }));
        tshark.Signal(SIGINT);
        tshark.Wait();
    }
    std::string Read(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"tshark", "-r", file});
        return RunProgram(arguments).output;
    }

   private:
    const std::string file;
    CProgram tshark;
};

}  // namespace test
