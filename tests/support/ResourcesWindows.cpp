#include "Resources.h"

#include <gtest/gtest.h>
#include <windows.h>
// After <windows.h>, which it needs but does not include.
#include <tlhelp32.h>

namespace test {

std::size_t ThreadCount() {
    SCOPED_TRACE("");  // the first one makes the framework start a thread
    const HANDLE all = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread{};
    thread.dwSize = sizeof(thread);
    std::size_t count = 0;
    for (BOOL more = ::Thread32First(all, &thread); more; more = ::Thread32Next(all, &thread)) {
        if (thread.th32OwnerProcessID == ::GetCurrentProcessId()) ++count;
    }
    ::CloseHandle(all);
    return count;
}

std::size_t DescriptorCount() {
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return count;
}

}  // namespace test
