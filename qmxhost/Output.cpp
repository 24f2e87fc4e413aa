#include "Output.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace qmxhost {

void Print(const std::string& text) {
    const bool taken = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (taken && std::fflush(stdout) == 0) return;
    throw CFailure(EExit::Failed,
                   "cannot write to standard output: " + std::generic_category().message(errno) +
                       "; is the program that reads it gone, or the disk full?");
}

void PrintJson(const Json& value) {
    Print(value.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n');
}

void PrintError(const std::string& text) { std::fprintf(stderr, "qmxhost: %s\n", text.c_str()); }

Json ValueAsJson(const qmx::CVariant& value) {
    switch (value.type()) {
        case qmx::EType::Bool:
            return value.ToBool();
        case qmx::EType::Float64:
            return value.ToFlt64();
        case qmx::EType::String:
            return Text(value.ToString());
        default:
            return nullptr;
    }
}

void PrintHint(const std::string& text) { std::fprintf(stderr, "%s\n", text.c_str()); }

}  // namespace qmxhost
