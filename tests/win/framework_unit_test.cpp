// The dialog framework: the secure edit (the platform edit never sees a real character) and
// the modal dialog machinery (results, failures), driven as a user would.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cwchar>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "framework/dialog_win.h"
#include "framework/secure_edit_win.h"
#include "services/secstr.h"

namespace {

constexpr UINT kDialogId = 100; // the template of framework_unit_test.rc
constexpr int kEditId = 101;
constexpr wchar_t kMask = L'\x25CF';

bool WaitUntil(const std::function<bool()>& condition, ULONGLONG timeoutMs = 10000) {
    for (const ULONGLONG end = GetTickCount64() + timeoutMs; !condition(); Sleep(5))
        if (GetTickCount64() > end) return false;
    return true;
}

// The secure edit holds `expected`; the platform edit only one mask character per real one.
::testing::AssertionResult Holds(const fw::SecureEdit* secure, HWND edit, const wchar_t* expected) {
    wchar_t buffer[256] = {};
    GetWindowTextW(edit, buffer, 256);
    if (secure && secure->Text().Compare(expected) != 0) return ::testing::AssertionFailure() << "text";
    if (std::wstring(buffer) == std::wstring(wcslen(expected), kMask)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "the edit holds " << wcslen(buffer) << " characters, not masks";
}

void SetClipboardText(HWND owner, const wchar_t* text) {
    ASSERT_TRUE(OpenClipboard(owner));
    EmptyClipboard();
    HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, (wcslen(text) + 1) * sizeof(wchar_t));
    wcscpy(static_cast<wchar_t*>(GlobalLock(memory)), text);
    GlobalUnlock(memory);
    EXPECT_TRUE(SetClipboardData(CF_UNICODETEXT, memory));
    CloseClipboard();
}

// The edit of the dialog template, in a modeless copy that records what its parent sees when
// the edit reports a change.
class SecureEditTest : public ::testing::Test {
  protected:
    void SetUp() override {
        s_test = this;
        parent = CreateDialogParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(kDialogId), nullptr, ParentProc, 0);
        ASSERT_TRUE(secure.Attach(edit = GetDlgItem(parent, kEditId)));
    }
    void TearDown() override { DestroyWindow(parent); }
    static INT_PTR CALLBACK ParentProc(HWND, UINT message, WPARAM wParam, LPARAM) {
        if (message == WM_COMMAND && HIWORD(wParam) == EN_CHANGE) s_test->seenAtChange = s_test->secure.Text();
        return FALSE;
    }

    static SecureEditTest* s_test;
    HWND parent = nullptr, edit = nullptr;
    fw::SecureEdit secure;
    CSecStr seenAtChange;
};
SecureEditTest* SecureEditTest::s_test = nullptr;

// The parent's change handler sees the new text; cut, copy and undo leave text and clipboard alone.
TEST_F(SecureEditTest, EditingKeysAndCommands) {
    struct Case {
        const char* name;
        int selStart, selEnd;
        UINT message;
        WPARAM wParam;
        const wchar_t* expected;
        int caret;
        int heldKey = 0;
        const wchar_t* clipboard = L"56\r\n7"; // pasting takes the first line only
        int limit = 0;                         // 0: the default limit
    };
    const Case cases[] = {
        {"backspace at the end", 4, 4, WM_CHAR, VK_BACK, L"123", 3},
        {"backspace at the start", 0, 0, WM_CHAR, VK_BACK, L"1234", 0},
        {"backspace over a selection", 1, 3, WM_CHAR, VK_BACK, L"14", 1},
        {"delete at the start", 0, 0, WM_KEYDOWN, VK_DELETE, L"234", 0},
        {"delete at the end", 4, 4, WM_KEYDOWN, VK_DELETE, L"1234", 4},
        {"clear a selection", 1, 3, WM_CLEAR, 0, L"14", 1},
        {"type in the middle", 2, 2, WM_CHAR, L'x', L"12x34", 3},
        {"type over a selection", 1, 3, WM_CHAR, L'x', L"1x4", 2},
        {"type over everything", 0, -1, WM_CHAR, L'x', L"x", 1},
        {"ctrl+a selects all", 2, 2, WM_CHAR, 0x01, L"1234", 4},
        {"ctrl+c (and every other control character)", 1, 3, WM_CHAR, 0x03, L"1234", 3},
        {"ctrl+backspace", 2, 2, WM_CHAR, 0x7F, L"1234", 2},
        {"WM_UNDO", 1, 3, WM_UNDO, 0, L"1234", 3},
        {"EM_UNDO", 1, 3, EM_UNDO, 0, L"1234", 3},
        {"WM_COPY", 1, 3, WM_COPY, 0, L"1234", 3},
        {"WM_CUT", 1, 3, WM_CUT, 0, L"1234", 3},
        {"ctrl+insert copies without WM_COPY", 1, 3, WM_KEYDOWN, VK_INSERT, L"1234", 3, VK_CONTROL},
        {"WM_PASTE", 1, 1, WM_PASTE, 0, L"156234", 3},
        {"ctrl+v, LF only", 1, 1, WM_CHAR, 0x16, L"156234", 3, 0, L"56\n7"},
        {"paste, line break first", 1, 1, WM_PASTE, 0, L"1234", 1, 0, L"\r\n7"},
        {"shift+insert pastes without WM_PASTE", 1, 1, WM_KEYDOWN, VK_INSERT, L"156234", 3, VK_SHIFT},
        {"typing at the limit", 4, 4, WM_CHAR, L'5', L"1234", 4, 0, L"", 4},
        {"pasting keeps what fits the limit", 1, 2, WM_PASTE, 0, L"1534", 2, 0, L"56", 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SetClipboardText(parent, c.clipboard);
        const DWORD clipboard = GetClipboardSequenceNumber();
        secure.SetText(L"1234");
        SendMessageW(edit, EM_LIMITTEXT, c.limit, 0);
        SendMessageW(edit, EM_SETSEL, c.selStart, c.selEnd);
        seenAtChange = L"1234";
        BYTE keys[256] = {}; // only the row's modifier is down, as the edit reads it
        keys[c.heldKey] = c.heldKey ? 0x80 : 0;
        SetKeyboardState(keys);
        SendMessageW(edit, c.message, c.wParam, 1);
        keys[c.heldKey] = 0;
        SetKeyboardState(keys);
        EXPECT_TRUE(Holds(&secure, edit, c.expected));
        EXPECT_EQ(c.caret, HIWORD(SendMessageW(edit, EM_GETSEL, 0, 0)));
        EXPECT_EQ(clipboard, GetClipboardSequenceNumber());
        EXPECT_STREQ(c.expected, seenAtChange.GetString());
    }
}

// Another subclass on top of ours (a host's, or an accessibility tool's) keeps working when the
// secure edit lets go first, and the edit's own procedure comes back when nothing sits on top.
WNDPROC g_beneathOuter = nullptr;
int g_outerMessages = 0;
LRESULT CALLBACK OuterProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    ++g_outerMessages;
    return CallWindowProcW(g_beneathOuter, hwnd, message, wParam, lParam);
}

TEST_F(SecureEditTest, DestroyingTheWindowWipesTheTextAndLettingGoKeepsEveryOtherSubclass) {
    SendMessageW(edit, WM_CHAR, L'7', 1);
    DestroyWindow(edit);
    EXPECT_TRUE(secure.Text().IsEmpty());
    for (bool outerOnTop : {false, true}) {
        SCOPED_TRACE(outerOnTop ? "a later subclass on top" : "nothing on top");
        HWND plain = CreateWindowExW(0, L"EDIT", L"", WS_CHILD | ES_PASSWORD, 5, 5, 200, 20, parent, nullptr,
                                     nullptr, nullptr);
        const auto original = GetWindowLongPtrW(plain, GWLP_WNDPROC);
        auto wrapper = std::make_unique<fw::SecureEdit>();
        ASSERT_TRUE(wrapper->Attach(plain));
        g_outerMessages = 0;
        if (outerOnTop)
            g_beneathOuter = reinterpret_cast<WNDPROC>(
                SetWindowLongPtrW(plain, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(OuterProc)));
        wrapper.reset();
        SetWindowTextW(plain, L"12");
        wchar_t text[8] = {};
        GetWindowTextW(plain, text, 8);
        EXPECT_STREQ(text, L"12");  // the edit itself answers again, without masks
        EXPECT_TRUE(outerOnTop ? g_outerMessages > 0 : GetWindowLongPtrW(plain, GWLP_WNDPROC) == original);
        DestroyWindow(plain);
    }
}

constexpr UINT kThrow = WM_APP + 1;

class TestDialog : public fw::Dialog {
  public:
    // The templates come from the test program itself.
    explicit TestDialog(UINT id = kDialogId) : fw::Dialog(id, nullptr) {
        fw::SetResourceModule(GetModuleHandleW(nullptr));
    }
    CSecStr pin;
    fw::SecureEdit edit;
    bool throwInInit = false;
    std::atomic<HWND> shown{nullptr};

  protected:
    BOOL OnInitDialog() override {
        if (throwInInit) throw std::runtime_error("init failed");
        const BOOL result = fw::Dialog::OnInitDialog();
        shown = GetSafeHwnd();
        return result;
    }
    void DoDataExchange(fw::DataExchange& dx) override {
        BindControl(dx, kEditId, edit);
        fw::DDX_Text(dx, kEditId, pin);
    }
    bool OnMessage(UINT message, WPARAM, LPARAM, LRESULT&) override {
        if (message == kThrow) throw std::runtime_error("handler failed");
        return false;
    }
};

// DoModal runs on this thread, as the library's caller does, while `user` acts from another one.
INT_PTR RunModal(TestDialog& dialog, const std::function<void(HWND)>& user) {
    const DWORD self = GetCurrentThreadId();
    std::atomic<bool> ended{false};
    std::thread act([&] {
        WaitUntil([&] { return dialog.shown || ended; });
        if (!ended) user(dialog.shown);
        // A dialog the test left open ends with the quit request instead of hanging the run.
        if (!WaitUntil([&] { return ended.load(); }, 2000)) PostThreadMessageW(self, WM_QUIT, 0, 0);
    });
    const INT_PTR result = dialog.DoModal();
    ended = true;
    act.join();
    return result;
}

TEST(Dialog, ResultIsWhatEndedTheDialogAndOnlyOkSavesThePin) {
    const struct {
        const char* name;
        std::function<void(HWND)> end;
        INT_PTR expected;
    } cases[] = {
        {"OK button", [](HWND d) { SendMessageW(GetDlgItem(d, IDOK), BM_CLICK, 0, 0); }, IDOK},
        {"Cancel button", [](HWND d) { SendMessageW(GetDlgItem(d, IDCANCEL), BM_CLICK, 0, 0); }, IDCANCEL},
        {"close box", [](HWND d) { SendMessageW(d, WM_CLOSE, 0, 0); }, IDCANCEL},
        {"exception in a handler", [](HWND d) { SendMessageW(d, kThrow, 0, 0); }, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestDialog dialog;
        dialog.pin = L"0815";
        EXPECT_EQ(c.expected, RunModal(dialog, [&](HWND hwnd) {
                      HWND edit = GetDlgItem(hwnd, kEditId);
                      EXPECT_TRUE(Holds(nullptr, edit, L"0815"));
                      SendMessageW(edit, EM_SETSEL, 4, 4);
                      SendMessageW(edit, WM_CHAR, L'9', 1);
                      c.end(hwnd);
                  }));
        EXPECT_FALSE(IsWindow(dialog.shown));
        EXPECT_STREQ(c.expected == IDOK ? L"08159" : L"0815", dialog.pin.GetString());
        EXPECT_TRUE(dialog.edit.Text().IsEmpty());
    }
}

TEST(Dialog, FailuresEndWithMinusOne) {
    EXPECT_EQ(-1, TestDialog(999).DoModal());
    TestDialog throwing;
    throwing.throwInInit = true;
    EXPECT_EQ(-1, RunModal(throwing, [](HWND) { ADD_FAILURE() << "a dialog that failed to start showed"; }));
}

} // namespace
