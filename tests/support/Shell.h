/// The shell of the small host, driven command by command.
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
};

}  // namespace test
