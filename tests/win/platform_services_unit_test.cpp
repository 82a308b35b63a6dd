// The platform services of the card unlock: the host's toasts and user-interface mode, and the
// copy-data notification that reaches the desktop agents.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <thread>
#include <vector>

#include "api/notify_event_win.h"
#include "cvpingui.h"
#include "self_child_win.h"
#include "services/toast_win.h"
#include "services/ui_mode_win.h"

namespace {

// --- Host providers ------------------------------------------------------------------------

std::vector<std::wstring> g_toasts;  // "title|text" of every toast the sink was asked for
int g_sinkRaises = 0;
int g_sinkShown = 0;
int g_mode = 0;

int WINAPI RecordingSink(const wchar_t* title, const wchar_t* text, int* shown) {
    g_toasts.push_back(std::wstring(title) + L"|" + text);
    *shown = g_sinkShown;
    return g_sinkRaises;
}

int WINAPI ProvidedMode() {
    return g_mode;
}

class HostProviders : public ::testing::Test {
protected:
    void TearDown() override {
        CVPinGuiSetToastProvider(nullptr);
        CVPinGuiSetUiModeProvider(nullptr);
    }
};

TEST_F(HostProviders, TheToastSinkRaisesEveryToastWithItsExactTexts) {
    const struct {
        const wchar_t* title;
        const wchar_t* text;
        int raises, shown;
    } cases[] = {
        {L"PIN Blocked", L"Please switch to the Desktop to unlock your card.", 1, 0},
        {L"<Card & \"reader\">", L"", 0, 0x1234},
    };
    CVPinGuiSetToastProvider(RecordingSink);
    for (const auto& c : cases) {
        g_toasts.clear();
        g_sinkRaises = c.raises;
        g_sinkShown = c.shown;
        CToastManager* toast = nvCreateToastManager(c.title, c.text, true);
        ASSERT_NE(toast, nullptr) << c.title;
        int shown = -1;
        EXPECT_EQ(toast->Show(&shown), c.raises != 0) << c.title;
        EXPECT_EQ(shown, c.shown) << c.title;
        EXPECT_EQ(g_toasts, std::vector<std::wstring>{std::wstring(c.title) + L"|" + c.text});
        toast->Hide();
        nvDeleteToastManager(toast);
    }
}

TEST_F(HostProviders, WithoutTheSinkToastsAreWindowsOwnWhereItHasThem) {
    CVPinGuiSetToastProvider(RecordingSink);
    CVPinGuiSetToastProvider(nullptr);
    g_toasts.clear();
    CToastManager* toast = nvCreateToastManager(L"PIN Blocked", L"Switch to the Desktop.", true);
    EXPECT_EQ(toast != nullptr, nvIsWinRTSupported());  // under Wine: no toasts at all
    nvDeleteToastManager(toast);
    EXPECT_TRUE(g_toasts.empty());
}

TEST_F(HostProviders, TheUiModeProviderAnswersUntilRemoved) {
    CVPinGuiSetUiModeProvider(ProvidedMode);
    for (int mode : {2, 3, 1}) {
        g_mode = mode;
        EXPECT_EQ(nvGetUIMode(), mode);
    }
    CVPinGuiSetUiModeProvider(nullptr);
    EXPECT_EQ(nvGetUIMode(), 1);  // the test runs on the interactive desktop
}

// --- NotifyEvent ---------------------------------------------------------------------------

const wchar_t kReader[] = L"Lumetra Corvana Virtual Smart Card Reader 0 (long name)";
const WPARAM kWParam = 0x2A;

// What an agent window received: its class, dwData, wParam and the cbData bytes of the text.
std::wstring Describe(const wchar_t* windowClass, ULONG_PTR data, WPARAM wParam, const std::wstring& text) {
    return std::wstring(windowClass) + L" " + std::to_wstring(data) + L" " + std::to_wstring(wParam) + L" [" +
           text + L"]";
}

std::vector<std::wstring> Expected() {
    const std::wstring whole(kReader, sizeof kReader / sizeof kReader[0]);  // with its terminator
    return {Describe(L"CvTrayHandlerClass", 0x13462, kWParam, whole),
            Describe(L"CVUserConsoleCL", 0x13462, kWParam, whole)};
}

// The smart-card agent's and the user console's windows, owned by the thread that makes them.
class AgentWindows {
public:
    AgentWindows() {
        for (const wchar_t* name : kClasses) {
            WNDCLASSW wc = {};
            wc.lpfnWndProc = Proc;
            wc.hInstance = GetModuleHandleW(nullptr);
            wc.lpszClassName = name;
            RegisterClassW(&wc);  // a second registration fails harmlessly
            m_windows.push_back(CreateWindowExW(0, name, name, WS_POPUP, 0, 0, 10, 10, nullptr, nullptr,
                                                wc.hInstance, nullptr));
            SetWindowLongPtrW(m_windows.back(), GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        }
    }
    ~AgentWindows() {
        for (HWND window : m_windows) DestroyWindow(window);
    }
    std::vector<std::wstring> received;

private:
    static constexpr const wchar_t* kClasses[] = {L"CvTrayHandlerClass", L"CVUserConsoleCL"};
    static LRESULT CALLBACK Proc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        auto* self = reinterpret_cast<AgentWindows*>(GetWindowLongPtrW(window, GWLP_USERDATA));
        if (message != WM_COPYDATA || !self) return DefWindowProcW(window, message, wParam, lParam);
        const auto* copy = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
        wchar_t windowClass[64] = {};
        GetClassNameW(window, windowClass, 64);
        self->received.push_back(Describe(windowClass, copy->dwData, wParam,
                                          std::wstring(static_cast<const wchar_t*>(copy->lpData),
                                                       copy->cbData / sizeof(wchar_t))));
        return TRUE;
    }
    std::vector<HWND> m_windows;
};

TEST(NotifyEvent, ReachesTheAgentsOnAnotherThread) {
    std::vector<std::wstring> received;
    HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    DWORD agentThread = 0;
    std::thread agents([&] {
        AgentWindows windows;
        agentThread = GetCurrentThreadId();
        SetEvent(ready);
        MSG msg;
        while (GetMessageW(&msg, nullptr, 0, 0) > 0) DispatchMessageW(&msg);
        received = windows.received;
    });
    WaitForSingleObject(ready, INFINITE);
    NotifyEvent(nullptr, kReader, kWParam);
    PostThreadMessageW(agentThread, WM_QUIT, 0, 0);
    agents.join();
    CloseHandle(ready);
    EXPECT_EQ(received, Expected());
}

TEST(NotifyEvent, ReachesTheAgentsInAnotherProcess) {
    AgentWindows windows;
    EXPECT_EQ(RunSelfChild(L"NotifyEventChild.DISABLED_Notifies", 60000), 0);
    EXPECT_EQ(windows.received, Expected());
}

TEST(NotifyEventChild, DISABLED_Notifies) {
    NotifyEvent(nullptr, kReader, kWParam);
}

}  // namespace
