// The exported rule list and PIN edit as a C++ caller uses them, through their public headers
// (the PIN change form is driven in embed_host_test).
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include "cvpingui_capslock_edit.h"
#include "cvpingui_policies_dlg.h"
#include "driver_win.h"

using namespace drv;

namespace {
// A window of the caller's.
struct CallerWindow {
    HWND hwnd = CreateWindowExW(WS_EX_CONTROLPARENT, L"STATIC", L"caller", WS_POPUP, 0, 0, 400, 400, nullptr,
                                nullptr, nullptr, nullptr);
    ~CallerWindow() { DestroyWindow(hwnd); }
};
}  // namespace

TEST(ExportedRuleList, TellsWhetherEveryShownRuleHolds) {
    CallerWindow caller;
    const PwdRuleArgs rules{/*digits only*/ 1, /*allow weak*/ 0, 0, 4, 8, 0};
    CVPoliciesDlg list(&rules, 0, nullptr, caller.hwnd, 15, 0, 6);
    ASSERT_NE(list.LocCreate(caller.hwnd), 0);
    EXPECT_TRUE(list.VerifyAndUpdatePolicies(L"", L"2580", L"2580", L"2580"));
    EXPECT_FALSE(list.VerifyAndUpdatePolicies(L"", L"1234", L"1234", L"1234"));   // weak
    EXPECT_FALSE(list.VerifyAndUpdatePolicies(nullptr, nullptr, nullptr, nullptr));  // empty: too short
}

TEST(ExportedCapsLockEdit, KeepsThePinOutOfTheCallersEdit) {
    CallerWindow caller;
    HWND edit = CreateWindowExW(0, L"EDIT", L"", WS_CHILD, 0, 0, 100, 20, caller.hwnd, nullptr, nullptr, nullptr);
    std::unique_ptr<CCapsLockSensitiveEdit> pin(new CCapsLockSensitiveEdit); // the library's operator new
    ASSERT_NE(pin, nullptr);
    ASSERT_TRUE(pin->Attach(edit));
    EXPECT_FALSE(pin->Attach(edit));
    TypeText(edit, L"2580");
    wchar_t text[64] = {};
    GetWindowTextW(edit, text, 64);
    EXPECT_EQ(std::wstring(text).size(), 4u);
    EXPECT_EQ(std::wstring(text).find_first_of(L"2580"), std::wstring::npos);
    pin->Detach();
    EXPECT_EQ(pin->GetSafeHwnd(), nullptr);
}
