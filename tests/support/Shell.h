/// Drives the shell of the small host.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "Program.h"

namespace test {

class CShell : public CProgram {
   public:
    CShell() : CProgram({"qmxhost", "--verbose", "shell"}) {}
    ~CShell() {
        if (!running()) return;
        EXPECT_EQ(Wait(), 0) << Errors();
    }
    nlohmann::json operator()(const std::string& command) {
        Write(command + "\n");
        const std::string line = ReadLine();
        return line.empty() ? nlohmann::json{{"ok", "no answer"}} : nlohmann::json::parse(line);
    }
    bool Ok(const std::string& command) { return (*this)(command)["ok"] == true; }
    /// Opens a camera, sets 64x48 and streams until a frame has arrived.
    bool Stream(const std::string& type = "raw", const std::string& address = "127.0.0.11") {
        return Ok("open " + address + " 3") && Ok("setformat 64 48 " + type) && Ok("start") &&
               Ok("wait 1 20000");
    }
};

}  // namespace test
