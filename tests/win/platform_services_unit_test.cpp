// The platform services of the card unlock: the host's toasts and user-interface mode, and the
// copy-data notification that reaches the desktop agents.
#include <gtest/gtest.h>
#include <windows.h>

#include <future>
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
int g_sinkRaises, g_mode;

int WINAPI RecordingSink(const wchar_t* title, const wchar_t* text, int* shown) {
    g_toasts.push_back(std::wstring(title) + L"|" + text);
    *shown = 0x1234;
    return g_sinkRaises;
}

// Texts reach the sink as they are, and what it shows and answers reaches the caller.
TEST(HostProviders, TheToastSinkGetsEveryToastUntilRemoved) {
    CVPinGuiSetToastProvider(RecordingSink);
    for (int raises : {1, 0}) {
        g_toasts.clear();
        g_sinkRaises = raises;
        CToastManager* toast = nvCreateToastManager(L"<Card & \"reader\">", L"", true);
        int shown = -1;
        EXPECT_EQ(toast && toast->Show(&shown), raises != 0);
        EXPECT_EQ(shown, 0x1234);
        EXPECT_EQ(g_toasts, std::vector<std::wstring>{L"<Card & \"reader\">|"});
        nvDeleteToastManager(toast);
    }
    CVPinGuiSetToastProvider(nullptr);
    CToastManager* toast = nvCreateToastManager(L"PIN Blocked", L"Switch to the Desktop.", true);
    EXPECT_EQ(toast != nullptr, nvIsWinRTSupported());  // none under Wine: it has no toasts
    nvDeleteToastManager(toast);
}

TEST(HostProviders, TheUiModeProviderAnswersUntilRemoved) {
    CVPinGuiSetUiModeProvider([] { return g_mode; });
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

// The smart-card agent's and the user console's windows live on a thread of their own, as in
// their programs; the notification comes from this thread, then from another process.
TEST(NotifyEvent, ReachesTheAgentsOnAnotherThreadAndInAnotherProcess) {
    std::promise<DWORD> agentThread;
    std::thread agents([&] {
        for (const wchar_t* name : {L"CvTrayHandlerClass", L"CVUserConsoleCL"}) {  // gone with the thread
            WNDCLASSW wc = {0, AgentProc, 0, 0, GetModuleHandleW(nullptr), nullptr, nullptr, nullptr, nullptr, name};
            RegisterClassW(&wc);
            CreateWindowExW(0, name, name, WS_POPUP, 0, 0, 9, 9, nullptr, nullptr, nullptr, nullptr);
        }
        agentThread.set_value(GetCurrentThreadId());
        MSG msg;
        while (GetMessageW(&msg, nullptr, 0, 0) > 0) DispatchMessageW(&msg);
    });
    const DWORD agentThreadId = agentThread.get_future().get();
    NotifyEvent(nullptr, kReader, 42);
    EXPECT_EQ(RunSelfChild(L"NotifyEventChild.DISABLED_Notifies", 60000), 0);
    PostThreadMessageW(agentThreadId, WM_QUIT, 0, 0);
    agents.join();
    const std::wstring tail = L" 78946 42 [" + std::wstring(kReader, std::size(kReader)) + L"]";  // terminator too
    const std::vector<std::wstring> once = {L"CvTrayHandlerClass" + tail, L"CVUserConsoleCL" + tail};
    EXPECT_EQ(g_received, std::vector<std::wstring>({once[0], once[1], once[0], once[1]}));
}

TEST(NotifyEventChild, DISABLED_Notifies) {
    NotifyEvent(nullptr, kReader, 42);
}

}  // namespace
