#include "SessionEnd.h"

#include <windows.h>

#include <thread>

#include "Process.h"

namespace platform {
namespace {

constexpr wchar_t windowClass[] = L"qmxcam session end";

LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM first, LPARAM second) {
    if (message == WM_ENDSESSION && first != 0) {
        RequestStop();
        // The system ends the process when this returns, or some seconds later. The end of `main`
        // ends this thread.
        ::Sleep(INFINITE);
    }
    return ::DefWindowProcW(window, message, first, second);
}

/// Runs a hidden window. It has a thread of its own, because that of the visible windows must go on
/// and end the program.
void RunWindow() {
    WNDCLASSW about{};
    about.lpfnWndProc = OnMessage;
    about.hInstance = ::GetModuleHandleW(nullptr);
    about.lpszClassName = windowClass;
    if (::RegisterClassW(&about) == 0) return;
    // Not a message-only window, which would not receive the message.
    if (::CreateWindowExW(0, windowClass, L"", 0, 0, 0, 0, 0, nullptr, nullptr, about.hInstance,
                          nullptr) == nullptr) {
        return;
    }
    MSG message;
    while (::GetMessageW(&message, nullptr, 0, 0) > 0) ::DispatchMessageW(&message);
}

}  // namespace

void WatchSessionEnd() { std::thread(RunWindow).detach(); }

}  // namespace platform
