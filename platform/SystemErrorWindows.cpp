#include "SystemErrorWindows.h"

#include <windows.h>

namespace platform {

std::string SystemErrorText(unsigned long code) {
    char buffer[512];
    const DWORD length =
        ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                         0, buffer, static_cast<DWORD>(sizeof(buffer)), nullptr);
    std::string text(buffer, length);
    text.resize(text.find_last_not_of(" .\r\n") + 1);
    const std::string number = "error " + std::to_string(code);
    return text.empty() ? number : text + " (" + number + ")";
}

}  // namespace platform
