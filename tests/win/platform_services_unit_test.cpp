// The platform services of the card unlock: the host's toasts and user-interface mode, and the
// copy-data notification that reaches the desktop agents.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <thread>
#include <vector>

#include "services/agent_notify_win.h"
#include "cvpingui.h"
#include "self_child_win.h"
#include "services/toast_win.h"
#include "services/ui_mode_win.h"

namespace {

std::vector<std::wstring> g_toasts;  // "title|text" of every toast the sink raised
int g_sinkRaises, g_sinkShown, g_mode;

int WINAPI RecordingSink(const wchar_t* title, const wchar_t* text, int* shown) {
    g_toasts.push_back(std::wstring(title) + L"|" + text);
    *shown = g_sinkShown;
    return g_sinkRaises;
}

int WINAPI ProvidedMode() {
    return g_mode;
}

TEST(HostProviders, TheToastSinkGetsEveryToastUntilRemoved) {
    const struct {
        const wchar_t *title, *text;
        int raises, shown;
    } cases[] = {{L"PIN Blocked", L"Please switch to the Desktop to unlock your card.", 1, 0},
                 {L"<Card & \"reader\">", L"", 0, 0x1234}};
    CVPinGuiSetToastProvider(RecordingSink);
    for (const auto& c : cases) {
        g_toasts.clear();
        g_sinkRaises = c.raises;
        g_sinkShown = c.shown;
        CToastManager* toast = nvCreateToastManager(c.title, c.text, true);
        int shown = -1;
        EXPECT_EQ(toast && toast->Show(&shown), c.raises != 0) << c.title;
        EXPECT_EQ(shown, c.shown) << c.title;
        EXPECT_EQ(g_toasts, std::vector<std::wstring>{std::wstring(c.title) + L"|" + c.text});
        nvDeleteToastManager(toast);
    }
    CVPinGuiSetToastProvider(nullptr);
    CToastManager* toast = nvCreateToastManager(L"PIN Blocked", L"Switch to the Desktop.", true);
    EXPECT_EQ(toast != nullptr, nvIsWinRTSupported());  // none under Wine: it has no toasts
    nvDeleteToastManager(toast);
}

TEST(HostProviders, TheUiModeProviderAnswersUntilRemoved) {
    CVPinGuiSetUiModeProvider(ProvidedMode);
    for (int mode : {2, 3, 1}) {
        g_mode = mode;
        EXPECT_EQ(nvGetUIMode(), mode);
    }
    CVPinGuiSetUiModeProvider(nullptr);
    EXPECT_EQ(nvGetUIMode(), 1);  // the tests run on the interactive desktop
}

const wchar_t kReader[] = L"Lumetra Corvana Virtual Smart Card Reader 0 (long name)";
std::vector<std::wstring> g_received;  // "class dwData wParam [the cbData bytes of lpData]"

LRESULT CALLBACK AgentProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message != WM_COPYDATA) return DefWindowProcW(window, message, wParam, lParam);
    const auto* copy = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
    const std::wstring text(static_cast<const wchar_t*>(copy->lpData), copy->cbData / sizeof(wchar_t));
    wchar_t name[64] = {};
    GetClassNameW(window, name, 64);
    g_received.push_back(std::wstring(name) + L" " + std::to_wstring(copy->dwData) + L" " + std::to_wstring(wParam) +
                         L" [" + text + L"]");
    return TRUE;
}

// The smart-card agent's and the user console's windows, owned by the calling thread.
std::vector<HWND> AgentWindows() {
    std::vector<HWND> windows;
    for (const wchar_t* name : {L"CvTrayHandlerClass", L"CVUserConsoleCL"}) {
        WNDCLASSW wc = {0, AgentProc, 0, 0, GetModuleHandleW(nullptr), nullptr, nullptr, nullptr, nullptr, name};
        RegisterClassW(&wc);  // fails harmlessly when registered before
        windows.push_back(CreateWindowExW(0, name, name, WS_POPUP, 0, 0, 9, 9, nullptr, nullptr, nullptr, nullptr));
    }
    g_received.clear();
    return windows;
}

std::vector<std::wstring> Expected() {
    const std::wstring tail = L" 78946 42 [" + std::wstring(kReader, std::size(kReader)) + L"]";  // terminator too
    return {L"CvTrayHandlerClass" + tail, L"CVUserConsoleCL" + tail};
}

TEST(NotifyEvent, ReachesTheAgentsOnAnotherThread) {
    HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    DWORD agentThread = 0;
    std::thread agents([&] {
        AgentWindows();  // destroyed with their thread
        agentThread = GetCurrentThreadId();
        SetEvent(ready);
        MSG msg;
        while (GetMessageW(&msg, nullptr, 0, 0) > 0) DispatchMessageW(&msg);
    });
    WaitForSingleObject(ready, INFINITE);
    NotifyEvent(nullptr, kReader, 42);
    PostThreadMessageW(agentThread, WM_QUIT, 0, 0);
    agents.join();
    CloseHandle(ready);
    EXPECT_EQ(g_received, Expected());
}

TEST(NotifyEvent, ReachesTheAgentsInAnotherProcess) {
    std::vector<HWND> windows = AgentWindows();
    EXPECT_EQ(RunSelfChild(L"NotifyEventChild.DISABLED_Notifies", 60000), 0);
    for (HWND window : windows) DestroyWindow(window);
    EXPECT_EQ(g_received, Expected());
}

TEST(NotifyEventChild, DISABLED_Notifies) {
    NotifyEvent(nullptr, kReader, 42);
}

}  // namespace
