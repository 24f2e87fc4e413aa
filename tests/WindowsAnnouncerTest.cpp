// The announcement of cameras on Windows with a double of the system's functions, which end an
// operation before the starting call has returned, on another thread, or with a failure.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "Announcer.h"
#include "DnsServices.h"

namespace {

std::vector<std::wstring> calls;
std::vector<std::thread> threads;
DWORD result;

DWORD Note(const wchar_t* what, PDNS_SERVICE_REGISTER_REQUEST request) {
    const DNS_SERVICE_INSTANCE& camera = *request->pServiceInstance;
    const auto* const address = reinterpret_cast<const BYTE*>(camera.ip4Address);
    calls.push_back(std::wstring(what) + L" " + camera.pszInstanceName + L" " + camera.pszHostName +
                    L":" + std::to_wstring(camera.wPort) + L" " + std::to_wstring(address[0]) +
                    L"-" + std::to_wstring(address[3]));
    const auto end = [request] {
        request->pRegisterCompletionCallback(result, request->pQueryContext, nullptr);
    };
    if (result == ERROR_CALL_NOT_IMPLEMENTED) return result;
    if (calls.size() % 2 == 0) {
        end();
    } else {
        threads.emplace_back(end);
    }
    return static_cast<DWORD>(platform::pendingRequest);
}
DWORD WINAPI Register(PDNS_SERVICE_REGISTER_REQUEST request, PDNS_SERVICE_CANCEL) {
    return Note(L"+", request);
}
DWORD WINAPI Deregister(PDNS_SERVICE_REGISTER_REQUEST request, PDNS_SERVICE_CANCEL) {
    return Note(L"-", request);
}
void WINAPI FreeInstance(PDNS_SERVICE_INSTANCE) {}

TEST(WindowsAnnouncer, WithdrawsWhatItAnnouncedAndOnlyWarnsWhereTheSystemRefuses) {
    const std::wstring roof =
        L" Roof \u00e9._koru-ircam._tcp.local koru-127-0-0-11.local:554 127-11";
    const std::wstring gate = L" Gate._koru-ircam._tcp.local koru-127-0-0-12.local:554 127-12";
    for (const long each : {ERROR_SUCCESS, ERROR_CALL_NOT_IMPLEMENTED, ERROR_TIMEOUT}) {
        result = static_cast<DWORD>(each);
        testing::internal::CaptureStderr();
        {
            korusim::CAnnouncer announcer;
            EXPECT_EQ(announcer.Announce({{"127.0.0.11", "Roof \xc3\xa9"}, {"127.0.0.12", "Gate"}}),
                      "");
        }
        const std::string warning = testing::internal::GetCapturedStderr();
        EXPECT_EQ(warning.find("not announced") != std::string::npos, each != ERROR_SUCCESS);
        std::vector<std::wstring> expected = {L"+" + roof, L"+" + gate};
        if (each == ERROR_SUCCESS) expected.insert(expected.end(), {L"-" + roof, L"-" + gate});
        EXPECT_EQ(calls, expected);
        for (std::thread& thread : threads) thread.join();
        threads.clear();
        calls.clear();
    }
}

}  // namespace

const platform::SWindowsServices& platform::WindowsServices() {
    static const SWindowsServices services = {nullptr,      nullptr, nullptr,  nullptr,
                                              FreeInstance, nullptr, Register, Deregister};
    return services;
}
