// The exported classes as a C++ caller uses them, through their public headers: a caller's own
// program (examples/embed_host, built from the public headers alone) with the PIN change form
// embedded in its window, driven from outside by control id as a user would; and the rule list
// and PIN edit in a window of this test's.
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include "cvpingui_capslock_edit.h"
#include "cvpingui_policies_dlg.h"
#include "driver_win.h"
#include "resource_ids.h"

using namespace drv;

namespace {

// The program, started from the test's own folder, with its window and form shown; ended when
// the object goes.
struct EmbedHost {
    EmbedHost() {
        STARTUPINFOW startup = {sizeof(startup)};
        wchar_t command[] = L"embed_host.exe";
        if (CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
            WaitUntil([&] {
                for (window = nullptr; (window = FindWindowExW(nullptr, window, L"CvPinEmbedHost", nullptr));) {
                    DWORD owner = 0;
                    GetWindowThreadProcessId(window, &owner);
                    if (owner == process.dwProcessId) break;
                }
                return window && IsWindowVisible(window) && FindDescendant(window, IDC_NEW_PIN_EDIT);
            });
    }
    ~EmbedHost() {
        if (!process.hProcess) return;
        if (WaitForSingleObject(process.hProcess, 0) == WAIT_TIMEOUT) TerminateProcess(process.hProcess, 99);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    void Type(int field, const wchar_t* text) { TypeText(FindDescendant(window, field), text); }
    // The exit code once the program has ended; -1 when it does not end.
    int ExitCode() {
        DWORD code = static_cast<DWORD>(-1);
        if (WaitForSingleObject(process.hProcess, kTimeoutMs) == WAIT_OBJECT_0)
            GetExitCodeProcess(process.hProcess, &code);
        return static_cast<int>(code);
    }

    PROCESS_INFORMATION process = {};
    HWND window = nullptr;
};
}  // namespace

// The host's form: current PIN asked, digits only, weak PINs refused, 4 to 8 characters.
TEST(EmbeddedChangePinHost, OkFollowsTheRulesAndTakesThePins) {
    EmbedHost host;
    ASSERT_NE(host.window, nullptr);
    host.Type(IDC_CURRENT_PIN_EDIT, L"123456");
    host.Type(IDC_NEW_PIN_EDIT, L"2580");
    EXPECT_FALSE(IsItemEnabled(host.window, IDOK));  // not confirmed
    host.Type(IDC_CONFIRM_PIN_EDIT, L"2580");
    EXPECT_TRUE(IsItemEnabled(host.window, IDOK));
    for (int i = 0; i < 6; ++i) Backspace(FindDescendant(host.window, IDC_CURRENT_PIN_EDIT));
    EXPECT_FALSE(IsItemEnabled(host.window, IDOK));  // the current PIN is asked for
    host.Type(IDC_CURRENT_PIN_EDIT, L"9");
    EXPECT_TRUE(IsItemEnabled(host.window, IDOK));
    Click(host.window, IDOK);
    EXPECT_EQ(host.ExitCode(), 0);  // the PINs taken
}

TEST(EmbeddedChangePinHost, CancelDestroysTheFormWithItsHandle) {
    EmbedHost host;
    ASSERT_NE(host.window, nullptr);
    host.Type(IDC_NEW_PIN_EDIT, L"2580");
    Click(host.window, IDCANCEL);
    EXPECT_EQ(host.ExitCode(), 1);  // cancelled; not 4: the form's window went with the handle
}

// The rule list and the PIN edit in a window of the caller's.
TEST(ExportedClasses, TheRuleListTellsWhetherEveryShownRuleHoldsAndTheEditKeepsThePinOut) {
    HWND caller = CreateWindowExW(WS_EX_CONTROLPARENT, L"STATIC", L"caller", WS_POPUP, 0, 0, 400, 400, nullptr,
                                  nullptr, nullptr, nullptr);
    const PwdRuleArgs rules{/*digits only*/ 1, /*allow weak*/ 0, 0, 4, 8, 0};
    CVPoliciesDlg list(&rules, 0, nullptr, caller, 15, 0, 6);
    ASSERT_NE(list.LocCreate(caller), 0);
    EXPECT_TRUE(list.VerifyAndUpdatePolicies(L"", L"2580", L"2580", L"2580"));
    EXPECT_FALSE(list.VerifyAndUpdatePolicies(L"", L"1234", L"1234", L"1234"));   // weak
    EXPECT_FALSE(list.VerifyAndUpdatePolicies(nullptr, nullptr, nullptr, nullptr));  // empty: too short

    HWND edit = CreateWindowExW(0, L"EDIT", L"", WS_CHILD, 0, 0, 100, 20, caller, nullptr, nullptr, nullptr);
    std::unique_ptr<CCapsLockSensitiveEdit> pin(new CCapsLockSensitiveEdit); // the library's operator new
    ASSERT_TRUE(pin->Attach(edit));
    EXPECT_FALSE(pin->Attach(edit));
    TypeText(edit, L"2580");
    wchar_t text[64] = {};
    GetWindowTextW(edit, text, 64);
    EXPECT_EQ(std::wstring(text).size(), 4u);
    EXPECT_EQ(std::wstring(text).find_first_of(L"2580"), std::wstring::npos);
    pin->Detach();
    EXPECT_EQ(pin->GetSafeHwnd(), nullptr);
    DestroyWindow(caller);
}
