// The PIN-pad prompts and the PIN-always confirmation, through the exported functions.
#include <gtest/gtest.h>
#include "cvpingui.h"
#include "driver_win.h"
#include "resource_ids.h"

using namespace drv;

namespace {
const wchar_t kReader[] = L"Simulated Reader 0";

std::unique_ptr<Caller> OpenKeyPad(const wchar_t* prompt = nullptr, const wchar_t* reader = kReader) {
    return std::make_unique<Caller>([=] { return ShowKeyPadPrompt(nullptr, reader, prompt, 0, nullptr, nullptr, 0); });
}
std::unique_ptr<Caller> OpenKeyPadChange(BOOL secondStep) {
    return std::make_unique<Caller>(
        [=] { return ShowKeyPadChgPinPrompt(nullptr, kReader, nullptr, secondStep, 0, nullptr, nullptr, 0); });
}
}  // namespace

TEST(KeyPadPrompt, CancelFromAnotherThreadEndsIt) {
    auto caller = OpenKeyPad(L"Type your PIN on the reader now");
    HWND dlg = WaitForDialog(*caller);
    ASSERT_NE(dlg, nullptr);
    EXPECT_EQ(ItemText(dlg, IDC_KP_PROMPT), L"Type your PIN on the reader now");
    CancelKeyPadPrompt();
    ASSERT_TRUE(caller->Wait());
    EXPECT_EQ(caller->Result(), CVPIN_FAILED);
    // Nothing left to cancel: a harmless call.
    CancelKeyPadPrompt();
    CancelKeyPadChgPinPrompt();
}

TEST(KeyPadPrompt, OnePadPromptAtATimeButPinAlwaysMayJoin) {
    auto caller = OpenKeyPad();
    HWND dlg = WaitForDialog(*caller);
    ASSERT_NE(dlg, nullptr);
    EXPECT_EQ(ShowKeyPadPrompt(nullptr, kReader, nullptr, 0, nullptr, nullptr, 0), CVPIN_FAILED);
    EXPECT_EQ(ShowKeyPadChgPinPrompt(nullptr, kReader, nullptr, FALSE, 0, nullptr, nullptr, 0), CVPIN_FAILED);

    Caller always([] { return ShowPINAlwaysPrompt(nullptr, kReader); });
    HWND confirm = WaitForDialog(always);
    ASSERT_NE(confirm, nullptr);
    Click(confirm, IDOK);
    ASSERT_TRUE(always.Wait());
    EXPECT_EQ(always.Result(), CVPIN_OK);

    // Either cancel function closes whichever pad prompt is open.
    CancelKeyPadChgPinPrompt();
    ASSERT_TRUE(caller->Wait());
}

TEST(KeyPadPrompt, ClosedByItsCardRemovalAndByLock) {
    auto caller = OpenKeyPad();
    ASSERT_NE(WaitForDialog(*caller), nullptr);
    RemoveCard(L"Another Reader");
    EXPECT_FALSE(WaitUntil([&] { return caller->Finished(); }, 300));
    RemoveCard(kReader);
    ASSERT_TRUE(caller->Wait());
    EXPECT_EQ(caller->Result(), CVPIN_FAILED);

    auto change = OpenKeyPadChange(TRUE);
    ASSERT_NE(WaitForDialog(*change), nullptr);
    SessionEvent(10065);
    ASSERT_TRUE(change->Wait());
    EXPECT_EQ(change->Result(), CVPIN_FAILED);

    Caller always([] { return ShowPINAlwaysPrompt(nullptr, kReader); });
    ASSERT_NE(WaitForDialog(always), nullptr);
    RemoveCard(kReader);
    ASSERT_TRUE(always.Wait());
    EXPECT_EQ(always.Result(), CVPIN_FAILED);
}

TEST(KeyPadPrompt, ChangePromptWordingFollowsTheStep) {
    HMODULE resources = LoadLibraryExW(L"Resources\\cv.corvana.gui.pinrc.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(resources, nullptr);
    for (BOOL secondStep : {FALSE, TRUE}) {
        wchar_t expected[512] = {};
        LoadStringW(resources, secondStep ? IDS_KEYPAD_CHANGE_NEW : IDS_KEYPAD_CHANGE_CURRENT, expected, 512);
        auto caller = OpenKeyPadChange(secondStep);
        HWND dlg = WaitForDialog(*caller);
        ASSERT_NE(dlg, nullptr);
        EXPECT_EQ(ItemText(dlg, IDC_KP_CHANGE_PROMPT), expected);
        // The title bar cannot close a pad prompt.
        UINT state = GetMenuState(GetSystemMenu(dlg, FALSE), SC_CLOSE, MF_BYCOMMAND);
        EXPECT_TRUE(state & (MF_GRAYED | MF_DISABLED));
        CancelKeyPadChgPinPrompt();
        ASSERT_TRUE(caller->Wait());
    }
    FreeLibrary(resources);
}

TEST(PinAlwaysPrompt, OkGivesZeroCancelFails) {
    for (int button : {IDOK, IDCANCEL}) {
        Caller caller([] { return ShowPINAlwaysPrompt(nullptr, kReader); });
        HWND dlg = WaitForDialog(caller);
        ASSERT_NE(dlg, nullptr);
        Click(dlg, button);
        ASSERT_TRUE(caller.Wait());
        EXPECT_EQ(caller.Result(), button == IDOK ? CVPIN_OK : CVPIN_FAILED);
    }
}

TEST(About, ShowsProductAndVersion) {
    Caller caller([] { return (int)ShowAbout(0, L"Scripted check"); });
    HWND dlg = WaitForDialog(caller);
    ASSERT_NE(dlg, nullptr);
    EXPECT_NE(ItemText(dlg, IDC_ABOUT_VERSION).find(L"1.0"), std::wstring::npos);
    EXPECT_FALSE(ItemText(dlg, IDC_ABOUT_PRODUCT).empty());
    EXPECT_EQ(ItemText(dlg, IDC_ABOUT_TEXT), L"Scripted check");
    Click(dlg, IDOK);
    ASSERT_TRUE(caller.Wait());
    EXPECT_EQ(caller.Result(), IDOK);
}

namespace {
// Cancels from the prompt's own thread before its window exists: a card answering that early.
LRESULT CALLBACK CancelAtCreation(int code, WPARAM wParam, LPARAM lParam) {
    if (code == HCBT_CREATEWND) CancelKeyPadPrompt();
    return CallNextHookEx(nullptr, code, wParam, lParam);
}
}  // namespace

TEST(KeyPadPrompt, ACancelBeforeThePromptAppearsStillEndsIt) {
    Caller caller([] {
        HHOOK hook = SetWindowsHookExW(WH_CBT, CancelAtCreation, nullptr, GetCurrentThreadId());
        int r = ShowKeyPadPrompt(nullptr, kReader, nullptr, 0, nullptr, nullptr, 0);
        UnhookWindowsHookEx(hook);
        return r;
    });
    ASSERT_TRUE(caller.Wait());
    EXPECT_EQ(caller.Result(), CVPIN_FAILED);
    // Spent: the next prompt stays until cancelled again.
    auto next = OpenKeyPad();
    ASSERT_NE(WaitForDialog(*next), nullptr);
    CancelKeyPadPrompt();
    ASSERT_TRUE(next->Wait());
}
