// Runs tests of this very program in a child process: a crash or a hang there fails the parent's
// test instead of ending or holding up the run, and what a process keeps for its lifetime starts
// fresh.
#pragma once
#include <windows.h>

#include <string>

// The child's exit code (0: its tests passed); -1 when the watchdog had to end it, -2 when it did
// not start. The parent's windows keep answering meanwhile: the child may own a prompt with one.
inline int RunSelfChild(const std::wstring& gtestFilter, DWORD watchdogMs) {
    wchar_t exe[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(exe) +
                           L"\" --gtest_brief=1 --gtest_also_run_disabled_tests --gtest_filter=" + gtestFilter;
    STARTUPINFOW startup = {sizeof startup};
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return -2;
    CloseHandle(process.hThread);
    const ULONGLONG end = GetTickCount64() + watchdogMs;
    DWORD code = static_cast<DWORD>(-1);
    for (ULONGLONG now; code == static_cast<DWORD>(-1) && (now = GetTickCount64()) < end;) {
        if (MsgWaitForMultipleObjects(1, &process.hProcess, FALSE, static_cast<DWORD>(end - now), QS_ALLINPUT) ==
            WAIT_OBJECT_0)
            GetExitCodeProcess(process.hProcess, &code);
        for (MSG msg; PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);) DispatchMessageW(&msg);
    }
    if (code == static_cast<DWORD>(-1)) {
        TerminateProcess(process.hProcess, code);
        WaitForSingleObject(process.hProcess, INFINITE);
    }
    CloseHandle(process.hProcess);
    return static_cast<int>(code);
}
