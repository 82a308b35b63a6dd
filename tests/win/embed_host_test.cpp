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

// The program, started from the test's own folder; closed when the object goes.
class EmbedHost {
public:
    EmbedHost() {
        STARTUPINFOW startup = {sizeof(startup)};
        wchar_t command[] = L"embed_host.exe";
        if (!CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &m_process))
            return;
        WaitUntil([&] {
            m_window = WindowOf(m_process.dwProcessId);
            return m_window && IsWindowVisible(m_window) && FindDescendant(m_window, IDC_NEW_PIN_EDIT);
        });
    }
    ~EmbedHost() {
        if (!m_process.hProcess) return;
        if (WaitForSingleObject(m_process.hProcess, 0) == WAIT_TIMEOUT) TerminateProcess(m_process.hProcess, 99);
        CloseHandle(m_process.hThread);
        CloseHandle(m_process.hProcess);
    }

    HWND Window() const { return m_window; }
    void Type(int field, const wchar_t* text) { TypeText(FindDescendant(m_window, field), text); }
    void Erase(int field, int count) {
        while (count-- > 0) Backspace(FindDescendant(m_window, field));
    }
    bool OkEnabled() const { return IsItemEnabled(m_window, IDOK); }
    // The exit code once the program has ended; -1 when it does not end.
    int ExitCode() {
        if (WaitForSingleObject(m_process.hProcess, kTimeoutMs) != WAIT_OBJECT_0) return -1;
        DWORD code = 0;
        GetExitCodeProcess(m_process.hProcess, &code);
        return static_cast<int>(code);
    }

private:
    static HWND WindowOf(DWORD processId) {
        for (HWND window = nullptr; (window = FindWindowExW(nullptr, window, L"CvPinEmbedHost", nullptr));) {
            DWORD owner = 0;
            GetWindowThreadProcessId(window, &owner);
            if (owner == processId) return window;
        }
        return nullptr;
    }

    PROCESS_INFORMATION m_process = {};
    HWND m_window = nullptr;
};

// A window of the caller's.
struct CallerWindow {
    HWND hwnd = CreateWindowExW(WS_EX_CONTROLPARENT, L"STATIC", L"caller", WS_POPUP, 0, 0, 400, 400, nullptr,
                                nullptr, nullptr, nullptr);
    ~CallerWindow() { DestroyWindow(hwnd); }
};
}  // namespace

// The host's form: current PIN asked, digits only, weak PINs refused, 4 to 8 characters.
TEST(EmbeddedChangePinHost, OkFollowsTheRulesAndTakesThePins) {
    EmbedHost host;
    ASSERT_NE(host.Window(), nullptr);
    host.Type(IDC_CURRENT_PIN_EDIT, L"123456");
    host.Type(IDC_NEW_PIN_EDIT, L"2580");
    EXPECT_FALSE(host.OkEnabled());  // not confirmed
    host.Type(IDC_CONFIRM_PIN_EDIT, L"2580");
    EXPECT_TRUE(host.OkEnabled());
    host.Erase(IDC_CURRENT_PIN_EDIT, 6);
    EXPECT_FALSE(host.OkEnabled());  // the current PIN is asked for
    host.Type(IDC_CURRENT_PIN_EDIT, L"9");
    EXPECT_TRUE(host.OkEnabled());
    Click(host.Window(), IDOK);
    EXPECT_EQ(host.ExitCode(), 0);  // the PINs taken
}

TEST(EmbeddedChangePinHost, CancelDestroysTheFormWithItsHandle) {
    EmbedHost host;
    ASSERT_NE(host.Window(), nullptr);
    host.Type(IDC_NEW_PIN_EDIT, L"2580");
    Click(host.Window(), IDCANCEL);
    EXPECT_EQ(host.ExitCode(), 1);  // cancelled; not 4: the form's window went with the handle
}

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
