#include "WideText.h"

#include <windows.h>

#include <iterator>

namespace platform {

std::wstring Widen(std::string_view utf8) {
    const int size = static_cast<int>(utf8.size());
    std::wstring text(utf8.size(), L'\0');  // UTF-16 never needs more units than UTF-8
    const int length =
        ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, text.data(), static_cast<int>(size));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::string Narrow(std::wstring_view utf16) {
    const int size = static_cast<int>(utf16.size());
    std::string text(utf16.size() * 3, '\0');  // the most that one unit of UTF-16 becomes
    const int length = ::WideCharToMultiByte(CP_UTF8, 0, utf16.data(), size, text.data(),
                                             static_cast<int>(text.size()), nullptr, nullptr);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::string SystemErrorText(unsigned long error) {
    wchar_t text[512];
    DWORD length =
        ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
                         0, text, static_cast<DWORD>(std::size(text)), nullptr);
    while (length != 0 && (text[length - 1] <= L' ' || text[length - 1] == L'.')) --length;
    const std::string number = "error " + std::to_string(error);
    return length == 0 ? number : Narrow({text, length}) + " (" + number + ")";
}

}  // namespace platform
