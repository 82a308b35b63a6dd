// What the unlock tells a user besides the unlock itself: the card that may not be unlocked here,
// the card manager's block, the stored unlock code shown once, and the reset form other
// components host.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cvpingui.h"
#include "cvpingui_reset_card_dlg.h"
#include "driver_win.h"
#include "resource_ids.h"
#include "smmw_sim.h"

using namespace drv;

namespace {

const wchar_t kReader[] = L"Notice Reader";
const wchar_t kNoCodeReader[] = L"No Code Reader";

const char kProfile[] = R"({"readers": [
  {"name": "Notice Reader", "card": {"serial": "0102030405060708", "type": "piv",
    "pin": {"value": "246810", "triesLeft": 0, "maxTries": 3},
    "unblock": {"adminKey": "00112233445566778899AABBCCDDEEFF", "authenticable": false},
    "unlockCode": "0F1E2D3C4B5A69788C"}},
  {"name": "No Code Reader", "card": {"serial": "0102030405060709", "type": "piv", "pin": {"value": "246810"},
    "unblock": {"adminKey": "00112233445566778899AABBCCDDEEFF", "authenticable": true}}}
]})";

template <class Fn> Fn SimFunction(const char* name) {
    static HMODULE sim = LoadLibraryW(L"cv.smmw.mwctl.dll");
    return reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(sim, name)));
}

// Every toast the library raises, as the host's toast sink sees it.
struct ToastLog {
    static std::vector<std::wstring>& Seen() {
        static std::vector<std::wstring> seen;
        return seen;
    }
    static int& Answer() {
        static int answer = 1;
        return answer;
    }
    static int WINAPI Raise(const wchar_t* title, const wchar_t* text, int* shown) {
        Seen().push_back(std::wstring(title) + L"|" + text);
        if (shown) *shown = 7;
        return Answer();
    }
};

int WINAPI OnTheSecureDesktop() {
    return 2;
}

class Notices : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(SimFunction<CvSimLoadProfileJsonFn>("CvSimLoadProfileJson")(kProfile), CVSIM_OK);
        ToastLog::Seen().clear();
        ToastLog::Answer() = 1;
    }
    void TearDown() override {
        CVPinGuiSetToastProvider(nullptr);
        SimFunction<CvSimLoadDefaultProfileFn>("CvSimLoadDefaultProfile")();
    }
};

TEST_F(Notices, ACardThatMayNotBeUnlockedIsAToastWhereOneCanBeRaised) {
    ScopedSetting title(L"Corvana.Notifications.CardLocked.ToastTitle", L"Card locked");
    ScopedSetting text(L"Corvana.Notifications.CardLocked.ToastMessage", L"Call the help desk.");
    ScopedSetting message(L"Corvana.Notifications.CardLocked.Message", L"This card is locked for good");
    CVPinGuiSetToastProvider(ToastLog::Raise);
    EXPECT_EQ(ShowUnlockDialog(nullptr, kReader, nullptr), (unsigned)CVPIN_UNLOCK_TOAST);
    EXPECT_EQ(ToastLog::Seen(), std::vector<std::wstring>{L"Card locked|Call the help desk."});

    // No toast: the notice, titled with the administrator's message.
    ToastLog::Answer() = 0;
    Caller caller([] { return (int)ShowUnlockDialog(nullptr, kReader, nullptr); });
    HWND notice = WaitForDialog(caller);
    ASSERT_NE(notice, nullptr);
    EXPECT_EQ(ItemText(notice, IDC_OUTCOME_TITLE), L"This card is locked for good");
    RemoveCard(kReader);
    ASSERT_TRUE(caller.Wait());
    EXPECT_EQ(caller.Result(), IDCANCEL) << "the notice closes with its card";
}

TEST_F(Notices, OffTheDesktopTheUnlockAlsoAsksForTheDesktopInAToast) {
    CVPinGuiSetToastProvider(ToastLog::Raise);
    CVPinGuiSetUiModeProvider(OnTheSecureDesktop);
    Caller caller([] { return (int)ShowUnlockDialog(nullptr, kNoCodeReader, nullptr); });
    HWND dlg = WaitForDialog(caller);
    CVPinGuiSetUiModeProvider(nullptr);
    ASSERT_NE(dlg, nullptr) << "the dialog opens all the same";
    EXPECT_EQ(ToastLog::Seen(),
              std::vector<std::wstring>{L"PIN Blocked|Please switch to the Desktop to unlock your card."});
    Click(dlg, IDCANCEL);
    ASSERT_TRUE(caller.Wait());
}

TEST_F(Notices, TheCardManagersBlockIsAToastOrANoticeFittedToItsMessage) {
    ScopedSetting title(L"Corvana.Notifications.BlockedCardManager.BlockedCardManagerToastTitle", L"Blocked");
    ScopedSetting text(L"Corvana.Notifications.BlockedCardManager.BlockedCardManagerToastMessage",
                       L"By the manager");
    CVPinGuiSetToastProvider(ToastLog::Raise);
    ShowCMLockedDlg(nullptr, kReader);
    EXPECT_EQ(ToastLog::Seen(), std::vector<std::wstring>{L"Blocked|By the manager"});

    ToastLog::Answer() = 0;
    auto messageHeight = [](const wchar_t* message) {
        ScopedSetting setting(L"Corvana.Notifications.BlockedCardManager.BlockedCardManagerMessage", message);
        Caller caller([] {
            ShowCMLockedDlg(nullptr, kReader);
            return 0;
        });
        HWND notice = WaitForDialog(caller);
        EXPECT_NE(notice, nullptr);
        RECT text, ok;
        GetWindowRect(GetDlgItem(notice, IDC_CM_MESSAGE), &text);
        GetWindowRect(GetDlgItem(notice, IDOK), &ok);
        EXPECT_EQ(ok.top, text.bottom) << "OK follows the message";
        Click(notice, IDOK);
        EXPECT_TRUE(caller.Wait());
        return text.bottom - text.top;
    };
    const int oneLine = messageHeight(L"");
    EXPECT_EQ(messageHeight(L"Short."), oneLine);
    EXPECT_GT(messageHeight(std::wstring(400, L'x').c_str()), 3 * oneLine);
}

TEST_F(Notices, TheUnlockCodeIsShownOnceAndRemovedOnlyWhenTheUserSaysSo) {
    auto show = [](bool tick, HWND parent, std::wstring* shown) {
        Caller caller([=] { return (int)ShowUnlockCode(parent, kReader); });
        HWND dlg = WaitForDialog(caller);
        EXPECT_NE(dlg, nullptr);
        if (!dlg) return -1;
        HWND code = FindDescendant(dlg, IDC_UC_CODE);
        *shown = code ? ItemText(GetParent(code), IDC_UC_CODE) : L"";
        if (parent) {
            EXPECT_EQ(GetPropW(parent, L"DisplayUCodeWnd"), dlg);
        }
        if (tick) SendMessageW(FindDescendant(dlg, IDC_UC_NEVER_DISPLAY), BM_SETCHECK, BST_CHECKED, 0);
        Click(dlg, IDOK);
        EXPECT_TRUE(caller.Wait());
        return caller.Result();
    };
    HWND parent = CreateWindowW(L"STATIC", L"caller", WS_POPUP | WS_VISIBLE, 0, 0, 10, 10, nullptr, nullptr,
                                nullptr, nullptr);
    std::wstring shown;
    EXPECT_EQ(show(false, parent, &shown), 0) << "OK alone keeps the code on the card";
    EXPECT_EQ(shown, L"0F1E-2D3C-4B5A-6978-8C");
    EXPECT_EQ(GetPropW(parent, L"DisplayUCodeWnd"), nullptr) << "the property goes with the window";
    EXPECT_EQ(show(true, nullptr, &shown), 1);
    DestroyWindow(parent);

    // Removed: the card holds no code any more, which the user is told.
    int boxes = 0;
    Caller again([] { return (int)ShowUnlockCode(nullptr, kReader); });
    if (HWND box = WaitForDialog(again)) {
        ++boxes;
        PressKey(box, VK_RETURN);
    }
    ASSERT_TRUE(again.Wait());
    EXPECT_EQ(again.Result(), 1);
    EXPECT_EQ(boxes, 1);
}

TEST_F(Notices, TheHideSettingShowsNothing) {
    ScopedSetting hide(L"Corvana.UserConsole.HideUnlockCode", 1);
    EXPECT_EQ(ShowUnlockCode(nullptr, kReader), 0u);
    ScopedSetting show(L"Corvana.UserConsole.HideUnlockCode", static_cast<DWORD>(0));
    Caller caller([] { return (int)ShowUnlockCode(nullptr, kReader); });
    HWND dlg = WaitForDialog(caller);
    ASSERT_NE(dlg, nullptr) << "still on the card";
    PostMessageW(dlg, WM_CLOSE, 0, 0);
    ASSERT_TRUE(caller.Wait());
}

TEST_F(Notices, TheResetFormKeepsOneFieldActiveAndShowsFourGroups) {
    CResetCardDialogMain* main = new CResetCardDialogMain(0, nullptr, 0, 0, 0, kReader, nullptr, nullptr, 0);
    ASSERT_NE(main, nullptr);
    main->SetChallenge(L"0123456789ABCDEF0123");
    Caller caller([=] { return (int)main->DoModal(); });
    HWND dlg = WaitForDialog(caller);
    ASSERT_NE(dlg, nullptr);
    EXPECT_EQ(ItemText(GetParent(FindDescendant(dlg, IDC_RC_CHALLENGE)), IDC_RC_CHALLENGE),
              L"0123-4567-89AB-CDEF");
    HWND form = GetParent(FindDescendant(dlg, IDC_RC_PIN_EDIT));
    // The PIN way: a code typed in the other field does not enable OK.
    EXPECT_TRUE(IsItemEnabled(form, IDC_RC_PIN_EDIT));
    EXPECT_FALSE(IsItemEnabled(form, IDC_RC_RESPONSE_EDIT));
    EXPECT_FALSE(IsItemEnabled(dlg, IDOK));
    TypeText(FindDescendant(dlg, IDC_RC_PIN_EDIT), L"2468");
    EXPECT_TRUE(IsItemEnabled(dlg, IDOK));
    Click(form, IDC_RC_RADIO_CODE);
    EXPECT_FALSE(IsItemEnabled(form, IDC_RC_PIN_EDIT));
    EXPECT_TRUE(IsItemEnabled(form, IDC_RC_RESPONSE_EDIT));
    EXPECT_FALSE(IsItemEnabled(dlg, IDOK)) << "the active field is empty";
    TypeText(FindDescendant(dlg, IDC_RC_RESPONSE_EDIT), L"FEDCBA98");
    EXPECT_TRUE(IsItemEnabled(dlg, IDOK));
    Click(dlg, IDOK);
    ASSERT_TRUE(caller.Wait());
    EXPECT_EQ(caller.Result(), IDOK);
    wchar_t value[32];
    EXPECT_EQ(main->GetPin(value, 4), -1) << "does not fit";
    EXPECT_EQ(main->GetPin(value, 32), 8);
    EXPECT_STREQ(value, L"FEDCBA98");
    delete main;

    // A blocked PIN leaves only the code; a card without a challenge takes its static code.
    CResetCardDialogMain blocked(0, nullptr, 0, 0, 0, kReader, nullptr, nullptr, 0);
    blocked.SetChallenge(nullptr);
    blocked.DisablePIN();
    Caller second([&] { return (int)blocked.DoModal(); });
    dlg = WaitForDialog(second);
    ASSERT_NE(dlg, nullptr);
    form = GetParent(FindDescendant(dlg, IDC_RC_PIN_EDIT));
    EXPECT_FALSE(IsItemEnabled(form, IDC_RC_RADIO_PIN)) << "the PIN cannot come back";
    EXPECT_FALSE(IsItemEnabled(form, IDC_RC_PIN_EDIT));
    EXPECT_TRUE(IsItemVisible(form, IDC_RC_STATIC_CODE_EDIT));
    EXPECT_FALSE(IsItemVisible(form, IDC_RC_CHALLENGE));
    RemoveCard(kReader);
    ASSERT_TRUE(second.Wait());
    EXPECT_EQ(second.Result(), IDCANCEL);
}

} // namespace
