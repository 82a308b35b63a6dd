// The exported rule list and PIN edit as a C++ caller uses them, through their public headers
// (the PIN change form is driven in embed_host_test).
#include <gtest/gtest.h>
#include <string>
#include "cvpingui_capslock_edit.h"
#include "cvpingui_policies_dlg.h"
#include "driver_win.h"

using namespace drv;

namespace {
// A window of the caller's.
class CallerWindow {
public:
    CallerWindow()
        : m_hwnd(CreateWindowExW(WS_EX_CONTROLPARENT, L"STATIC", L"caller", WS_POPUP, 0, 0, 400, 400, nullptr,
                                 nullptr, nullptr, nullptr)) {}
    ~CallerWindow() { DestroyWindow(m_hwnd); }
    HWND Hwnd() const { return m_hwnd; }

private:
    HWND m_hwnd;
};

std::wstring TextOf(HWND edit) {
    wchar_t text[64] = {};
    GetWindowTextW(edit, text, 64);
    return text;
}
}  // namespace

TEST(ExportedRuleList, TellsWhetherEveryShownRuleHolds) {
    CallerWindow caller;
    const PwdRuleArgs rules{/*digits only*/ 1, /*allow weak*/ 0, 0, 4, 8, 0};
    CVPoliciesDlg list(&rules, 0, nullptr, caller.Hwnd(), 15, 0, 6);
    ASSERT_NE(list.LocCreate(caller.Hwnd()), 0);
    EXPECT_TRUE(list.VerifyAndUpdatePolicies(L"", L"2580", L"2580", L"2580"));
    EXPECT_FALSE(list.VerifyAndUpdatePolicies(L"", L"1234", L"1234", L"1234"));   // weak
    EXPECT_FALSE(list.VerifyAndUpdatePolicies(nullptr, nullptr, nullptr, nullptr));  // empty: too short
}

TEST(ExportedCapsLockEdit, KeepsThePinOutOfTheCallersEdit) {
    CallerWindow caller;
    HWND edit = CreateWindowExW(0, L"EDIT", L"", WS_CHILD, 0, 0, 100, 20, caller.Hwnd(), nullptr, nullptr, nullptr);
    auto* pin = new CCapsLockSensitiveEdit;
    ASSERT_NE(pin, nullptr);
    ASSERT_TRUE(pin->Attach(edit));
    EXPECT_FALSE(pin->Attach(edit));
    EXPECT_EQ(pin->GetSafeHwnd(), edit);
    TypeText(edit, L"2580");
    EXPECT_EQ(TextOf(edit).size(), 4u);
    EXPECT_EQ(TextOf(edit).find_first_of(L"2580"), std::wstring::npos);
    pin->Detach();
    EXPECT_EQ(pin->GetSafeHwnd(), nullptr);
    delete pin;
}
