// The dialog framework: the secure edit (the platform edit never sees a real character) and
// the modal dialog machinery (results, failures, parent handling), driven as a user would.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "framework/dialog_win.h"
#include "framework/secure_edit_win.h"
#include "framework/ui_scope_win.h"
#include "services/log.h"
#include "services/secstr.h"

namespace {

// Ids of framework_unit_test.rc.
constexpr UINT kDialogId = 100;
constexpr UINT kChildId = 102;
constexpr int kEditId = 101;
constexpr wchar_t kMask = L'\x25CF';

bool WaitUntil(const std::function<bool()>& condition, int timeoutMs = 10000) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        Sleep(5);  // polling interval; the condition decides
    }
    return true;
}

// The edit's own text must be one mask character per real character, nothing else.
::testing::AssertionResult HoldsOnlyMask(HWND edit, int expectedLength) {
    wchar_t buffer[256] = {};
    const int n = GetWindowTextW(edit, buffer, 256);
    if (n != expectedLength) return ::testing::AssertionFailure() << "edit holds " << n << " characters";
    for (int i = 0; i < n; ++i) {
        if (buffer[i] != kMask)
            return ::testing::AssertionFailure() << "character " << i << " is not the mask";
    }
    return ::testing::AssertionSuccess();
}

bool SetClipboardText(HWND owner, const wchar_t* text) {
    if (!OpenClipboard(owner)) return false;
    EmptyClipboard();
    const size_t bytes = (wcslen(text) + 1) * sizeof(wchar_t);
    HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, bytes);
    memcpy(GlobalLock(memory), text, bytes);
    GlobalUnlock(memory);
    const bool ok = SetClipboardData(CF_UNICODETEXT, memory) != nullptr;
    CloseClipboard();
    return ok;
}

// Runs action with a modifier key down in this thread's keyboard state, as the edit reads it.
void WithKeyHeld(int vk, const std::function<void()>& action) {
    BYTE keys[256] = {}, held[256];
    GetKeyboardState(keys);
    memcpy(held, keys, sizeof(held));
    held[vk] = 0x80;
    SetKeyboardState(held);
    action();
    SetKeyboardState(keys);
}

std::wstring ClipboardText(HWND owner) {
    std::wstring text;
    if (!OpenClipboard(owner)) return L"<not open>";
    if (HANDLE data = GetClipboardData(CF_UNICODETEXT)) {
        text = static_cast<const wchar_t*>(GlobalLock(data));
        GlobalUnlock(data);
    }
    CloseClipboard();
    return text;
}

// ---------------------------------------------------------------------------------------------
// SecureEdit on a plain password edit in a top-level window of the test thread.

class SecureEditTest : public ::testing::Test {
protected:
    void SetUp() override {
        static const ATOM cls = [] {
            WNDCLASSW wc = {};
            wc.lpfnWndProc = ParentProc;
            wc.hInstance = GetModuleHandleW(nullptr);
            wc.lpszClassName = L"FrameworkTestParent";
            return RegisterClassW(&wc);
        }();
        ASSERT_NE(0, cls);
        parent = CreateWindowExW(0, L"FrameworkTestParent", L"", WS_OVERLAPPEDWINDOW, 0, 0, 300, 100, nullptr,
                                 nullptr, GetModuleHandleW(nullptr), nullptr);
        edit = CreateWindowExW(0, L"EDIT", L"", WS_CHILD | WS_VISIBLE | ES_PASSWORD | ES_AUTOHSCROLL, 5, 5,
                               200, 20, parent, reinterpret_cast<HMENU>(static_cast<INT_PTR>(kEditId)),
                               GetModuleHandleW(nullptr), nullptr);
        ASSERT_TRUE(edit);
        ASSERT_TRUE(secure.Attach(edit));
        s_current = this;
    }
    void TearDown() override {
        s_current = nullptr;
        DestroyWindow(parent);
    }

    static LRESULT CALLBACK ParentProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == WM_COMMAND && s_current && reinterpret_cast<HWND>(lParam) == s_current->edit) {
            if (HIWORD(wParam) == EN_CHANGE) s_current->seenAtChange = s_current->secure.Text();
            if (HIWORD(wParam) == EN_MAXTEXT) ++s_current->maxTextNotices;
        }
        return DefWindowProcW(hwnd, message, wParam, lParam);
    }

    void Type(const wchar_t* text) {
        for (; *text; ++text) SendMessageW(edit, WM_CHAR, *text, 1);
    }
    void Select(int start, int end) { SendMessageW(edit, EM_SETSEL, start, end); }
    int Caret() {
        DWORD start = 0, end = 0;
        SendMessageW(edit, EM_GETSEL, reinterpret_cast<WPARAM>(&start), reinterpret_cast<LPARAM>(&end));
        return static_cast<int>(end);
    }
    ::testing::AssertionResult Holds(const wchar_t* expected) {
        if (secure.Text().Compare(expected) != 0)
            return ::testing::AssertionFailure() << "secure text differs from \"" << expected << "\"";
        return HoldsOnlyMask(edit, static_cast<int>(wcslen(expected)));
    }

    static SecureEditTest* s_current;
    HWND parent = nullptr;
    HWND edit = nullptr;
    fw::SecureEdit secure;
    CSecStr seenAtChange;
    int maxTextNotices = 0;
};

SecureEditTest* SecureEditTest::s_current = nullptr;

TEST_F(SecureEditTest, TypingFillsTheSecureTextAndOnlyMasksTheEdit) {
    Type(L"4711");
    EXPECT_TRUE(Holds(L"4711"));
    EXPECT_EQ(4, Caret());
    EXPECT_EQ(FALSE, SendMessageW(edit, EM_CANUNDO, 0, 0));
}

TEST_F(SecureEditTest, EditingKeysAndCommands) {
    struct Case {
        const char* name;
        int selStart, selEnd;
        UINT message;
        WPARAM wParam;
        const wchar_t* expected;
        int caret;
    };
    const Case cases[] = {
        {"backspace at the end", 4, 4, WM_CHAR, VK_BACK, L"123", 3},
        {"backspace at the start", 0, 0, WM_CHAR, VK_BACK, L"1234", 0},
        {"backspace over a selection", 1, 3, WM_CHAR, VK_BACK, L"14", 1},
        {"delete at the start", 0, 0, WM_KEYDOWN, VK_DELETE, L"234", 0},
        {"delete at the end", 4, 4, WM_KEYDOWN, VK_DELETE, L"1234", 4},
        {"delete over a selection", 1, 3, WM_KEYDOWN, VK_DELETE, L"14", 1},
        {"clear a selection", 1, 3, WM_CLEAR, 0, L"14", 1},
        {"type in the middle", 2, 2, WM_CHAR, L'x', L"12x34", 3},
        {"type over a selection", 1, 3, WM_CHAR, L'x', L"1x4", 2},
        {"type over everything", 0, -1, WM_CHAR, L'x', L"x", 1},
        {"ctrl+a selects all", 2, 2, WM_CHAR, 0x01, L"1234", 4},
        {"ctrl+c dropped", 1, 3, WM_CHAR, 0x03, L"1234", 3},
        {"ctrl+x dropped", 1, 3, WM_CHAR, 0x18, L"1234", 3},
        {"ctrl+z dropped", 1, 3, WM_CHAR, 0x1A, L"1234", 3},
        {"ctrl+backspace dropped", 2, 2, WM_CHAR, 0x7F, L"1234", 2},
        {"undo refused", 1, 3, WM_UNDO, 0, L"1234", 3},
        {"EM_UNDO refused", 1, 3, EM_UNDO, 0, L"1234", 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        secure.SetText(L"1234");
        Select(c.selStart, c.selEnd);
        SendMessageW(edit, c.message, c.wParam, 1);
        EXPECT_TRUE(Holds(c.expected));
        EXPECT_EQ(c.caret, Caret());
    }
}

TEST_F(SecureEditTest, ParentSeesTheNewTextInItsChangeHandler) {
    Type(L"12");
    Type(L"3");
    EXPECT_STREQ(L"123", seenAtChange.GetString());
    SendMessageW(edit, WM_CHAR, VK_BACK, 1);
    EXPECT_STREQ(L"12", seenAtChange.GetString());
}

TEST_F(SecureEditTest, TextLimitHolds) {
    SendMessageW(edit, EM_LIMITTEXT, 4, 0);
    Type(L"123456");
    EXPECT_TRUE(Holds(L"1234"));
    EXPECT_GT(maxTextNotices, 0);
    ASSERT_TRUE(SetClipboardText(parent, L"abc"));
    Select(1, 2);
    SendMessageW(edit, WM_PASTE, 0, 0);
    EXPECT_TRUE(Holds(L"1a34"));
}

TEST_F(SecureEditTest, PasteTakesTheFirstLineAtTheCaret) {
    struct Case {
        const char* name;
        const wchar_t* clipboard;
        std::function<void()> paste;
        const wchar_t* expected;
    };
    const Case cases[] = {
        {"WM_PASTE", L"12\r\n34", [&] { SendMessageW(edit, WM_PASTE, 0, 0); }, L"a12b"},
        {"ctrl+v", L"12\n34", [&] { SendMessageW(edit, WM_CHAR, 0x16, 1); }, L"a12b"},
        {"line break first", L"\r\n34", [&] { SendMessageW(edit, WM_PASTE, 0, 0); }, L"ab"},
        // The edit pastes on Shift+Insert by itself, without WM_PASTE.
        {"shift+insert", L"12",
         [&] { WithKeyHeld(VK_SHIFT, [&] { SendMessageW(edit, WM_KEYDOWN, VK_INSERT, 1); }); }, L"a12b"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(SetClipboardText(parent, c.clipboard));
        secure.SetText(L"ab");
        Select(1, 1);
        c.paste();
        EXPECT_TRUE(Holds(c.expected));
    }
}

TEST_F(SecureEditTest, CutAndCopyLeaveTheClipboardAlone) {
    ASSERT_TRUE(SetClipboardText(parent, L"keep"));
    Type(L"1234");
    Select(0, -1);
    SendMessageW(edit, WM_COPY, 0, 0);
    SendMessageW(edit, WM_CUT, 0, 0);
    // Ctrl+Insert copies in a plain edit, without WM_COPY.
    WithKeyHeld(VK_CONTROL, [&] { SendMessageW(edit, WM_KEYDOWN, VK_INSERT, 1); });
    EXPECT_EQ(L"keep", ClipboardText(parent));
    EXPECT_TRUE(Holds(L"1234"));
}

TEST_F(SecureEditTest, TextSetFromOutside) {
    SendMessageW(edit, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(L"abc"));
    EXPECT_TRUE(Holds(L"abc"));
    Select(0, -1);
    SendMessageW(edit, EM_REPLACESEL, TRUE, reinterpret_cast<LPARAM>(L"xy"));
    EXPECT_TRUE(Holds(L"xy"));
    secure.SetText(L"99");
    EXPECT_TRUE(Holds(L"99"));
    EXPECT_EQ(2, Caret());
    secure.Clear();
    EXPECT_TRUE(Holds(L""));
}

TEST_F(SecureEditTest, StyleRulesApply) {
    SetWindowLongPtrW(edit, GWL_STYLE, GetWindowLongPtrW(edit, GWL_STYLE) | ES_NUMBER);
    Type(L"1a2");
    EXPECT_TRUE(Holds(L"12"));
    SendMessageW(edit, EM_SETREADONLY, TRUE, 0);
    Type(L"3");
    SendMessageW(edit, WM_CHAR, VK_BACK, 1);
    EXPECT_TRUE(Holds(L"12"));
}

TEST_F(SecureEditTest, DestroyingTheWindowWipesTheText) {
    Type(L"4711");
    DestroyWindow(edit);
    EXPECT_TRUE(secure.Text().IsEmpty());
    EXPECT_EQ(nullptr, secure.Hwnd());
    EXPECT_EQ(nullptr, fw::Control::FromHandle(edit));
}

// ---------------------------------------------------------------------------------------------
// Dialogs: the templates come from the test program itself.

constexpr UINT kEndWith = WM_APP + 1;  // ends the dialog with wParam
constexpr UINT kThrow = WM_APP + 2;

class TestDialog : public fw::Dialog {
public:
    explicit TestDialog(HWND parent = nullptr, UINT id = kDialogId) : fw::Dialog(id, parent) {}
    CSecStr pin;
    fw::SecureEdit edit;
    bool secureEdit = true;
    bool throwInInit = false;

protected:
    BOOL OnInitDialog() override {
        if (throwInInit) throw std::runtime_error("init failed");
        return fw::Dialog::OnInitDialog();
    }
    void DoDataExchange(fw::DataExchange& dx) override {
        if (secureEdit) BindControl(dx, kEditId, edit);
        fw::DDX_Text(dx, kEditId, pin);
    }
    bool OnMessage(UINT message, WPARAM wParam, LPARAM, LRESULT&) override {
        if (message == kEndWith) {
            EndDialog(static_cast<INT_PTR>(wParam));
            return true;
        }
        if (message == kThrow) throw std::runtime_error("handler failed");
        return false;
    }
};

// Runs a dialog's DoModal on its own thread, as the caller of the library would.
class ModalRun {
public:
    explicit ModalRun(std::function<INT_PTR()> run)
        : m_thread([this, run] {
              m_threadId = GetCurrentThreadId();
              m_result = run();
              m_done = true;
          }) {}
    ~ModalRun() {
        // A dialog a failed test left open ends with the quit request instead of hanging the run.
        if (!WaitUntil([&] { return m_done.load(); }, 2000)) PostThreadMessageW(m_threadId, WM_QUIT, 0, 0);
        m_thread.join();
    }
    // The dialog once it shows; null when the run ends first or on time-out.
    HWND Dialog() {
        HWND found = nullptr;
        WaitUntil([&] {
            EnumThreadWindows(m_threadId, FindVisible, reinterpret_cast<LPARAM>(&found));
            return found || m_done;
        });
        return found;
    }
    INT_PTR Result() {
        return WaitUntil([&] { return m_done.load(); }) ? m_result.load() : 0x7FFF;
    }

private:
    static BOOL CALLBACK FindVisible(HWND hwnd, LPARAM found) {
        wchar_t cls[16] = {};
        GetClassNameW(hwnd, cls, 16);
        if (!IsWindowVisible(hwnd) || wcscmp(cls, L"#32770") != 0) return TRUE;
        *reinterpret_cast<HWND*>(found) = hwnd;
        return FALSE;
    }
    std::atomic<DWORD> m_threadId{0};
    std::atomic<bool> m_done{false};
    std::atomic<INT_PTR> m_result{0};
    std::thread m_thread;  // last: starts once the flags exist
};

class CountingSink : public ILogSink {
public:
    void Write(const wchar_t*, int level, const wchar_t*) override {
        if (level == CVLOG_ERROR) ++errors;
    }
    std::atomic<int> errors{0};
};

class DialogTest : public ::testing::Test {
protected:
    void SetUp() override {
        fw::SetResourceModule(GetModuleHandleW(nullptr));
        SetLogSink(&sink);
    }
    void TearDown() override {
        SetLogSink(nullptr);
        fw::SetResourceModule(nullptr);
    }
    CountingSink sink;
};

TEST_F(DialogTest, ResultIsWhatEndedTheDialog) {
    struct Case {
        const char* name;
        std::function<void(HWND)> end;
        INT_PTR expected;
    };
    const Case cases[] = {
        {"EndDialog", [](HWND d) { SendMessageW(d, kEndWith, 42, 0); }, 42},
        {"Cancel button", [](HWND d) { SendMessageW(GetDlgItem(d, IDCANCEL), BM_CLICK, 0, 0); }, IDCANCEL},
        {"close box", [](HWND d) { SendMessageW(d, WM_CLOSE, 0, 0); }, IDCANCEL},
        {"exception in a handler", [](HWND d) { SendMessageW(d, kThrow, 0, 0); }, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TestDialog dialog;
        ModalRun run([&] { return dialog.DoModal(); });
        HWND hwnd = run.Dialog();
        ASSERT_TRUE(hwnd);
        c.end(hwnd);
        EXPECT_EQ(c.expected, run.Result());
        EXPECT_FALSE(IsWindow(hwnd));
        EXPECT_EQ(nullptr, dialog.GetSafeHwnd());
    }
    EXPECT_EQ(1, sink.errors.load());
}

TEST_F(DialogTest, FailuresEndWithMinusOne) {
    TestDialog missing(nullptr, 999);
    EXPECT_EQ(-1, missing.DoModal());

    TestDialog throwing;
    throwing.throwInInit = true;
    {
        ModalRun run([&] { return throwing.DoModal(); });
        EXPECT_EQ(nullptr, run.Dialog()) << "a dialog that failed to start must never show";
        EXPECT_EQ(-1, run.Result());
    }
    EXPECT_EQ(nullptr, throwing.GetSafeHwnd());

    fw::SetResourceModule(nullptr);
    TestDialog noModule;
    EXPECT_EQ(-1, noModule.DoModal());
}

TEST_F(DialogTest, QuitRequestEndsTheLoopAndIsPassedOn) {
    TestDialog dialog;
    std::atomic<bool> quitSeen{false};
    ModalRun run([&] {
        const INT_PTR result = dialog.DoModal();
        MSG msg;
        quitSeen = PeekMessageW(&msg, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) && msg.wParam == 7;
        return result;
    });
    HWND hwnd = run.Dialog();
    ASSERT_TRUE(hwnd);
    PostThreadMessageW(GetWindowThreadProcessId(hwnd, nullptr), WM_QUIT, 7, 0);
    EXPECT_EQ(-1, run.Result());
    EXPECT_TRUE(quitSeen.load());
}

TEST_F(DialogTest, OkSavesTheEditIntoTheMember) {
    for (bool secureEdit : {true, false}) {
        SCOPED_TRACE(secureEdit ? "secure edit" : "plain edit");
        TestDialog dialog;
        dialog.secureEdit = secureEdit;
        dialog.pin = L"0815";
        ModalRun run([&] { return dialog.DoModal(); });
        HWND hwnd = run.Dialog();
        ASSERT_TRUE(hwnd);
        HWND edit = GetDlgItem(hwnd, kEditId);
        if (secureEdit) {
            EXPECT_TRUE(HoldsOnlyMask(edit, 4));
        }
        SendMessageW(edit, EM_SETSEL, 4, 4);
        SendMessageW(edit, WM_CHAR, L'9', 1);
        SendMessageW(GetDlgItem(hwnd, IDOK), BM_CLICK, 0, 0);
        EXPECT_EQ(IDOK, run.Result());
        EXPECT_STREQ(L"08159", dialog.pin.GetString());
        EXPECT_TRUE(dialog.edit.Text().IsEmpty());
    }
}

TEST_F(DialogTest, ParentIsDisabledWhileTheDialogRuns) {
    // The parent lives on the dialog's thread: EnableWindow across threads would wait for ours.
    for (bool childAsParent : {false, true}) {
        SCOPED_TRACE(childAsParent ? "child window as parent" : "top-level parent");
        std::atomic<HWND> top{nullptr};
        std::atomic<bool> enabledAfter{false};
        ModalRun run([&] {
            HWND window = CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 200, 100,
                                          nullptr, nullptr, nullptr, nullptr);
            HWND child =
                CreateWindowExW(0, L"STATIC", L"", WS_CHILD, 0, 0, 10, 10, window, nullptr, nullptr, nullptr);
            top = window;
            TestDialog dialog(childAsParent ? child : window);
            const INT_PTR result = dialog.DoModal();
            enabledAfter = IsWindowEnabled(window) != FALSE;
            DestroyWindow(window);
            return result;
        });
        HWND hwnd = run.Dialog();
        ASSERT_TRUE(hwnd);
        EXPECT_FALSE(IsWindowEnabled(top.load()));
        EXPECT_EQ(top.load(), GetWindow(hwnd, GW_OWNER));
        SendMessageW(GetDlgItem(hwnd, IDCANCEL), BM_CLICK, 0, 0);
        EXPECT_EQ(IDCANCEL, run.Result());
        EXPECT_TRUE(enabledAfter.load());
    }
}

TEST_F(DialogTest, DeadParentStillGetsADialog) {
    HWND gone = CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPEDWINDOW, 0, 0, 10, 10, nullptr, nullptr,
                                nullptr, nullptr);
    DestroyWindow(gone);
    TestDialog dialog(gone);
    ModalRun run([&] { return dialog.DoModal(); });
    HWND hwnd = run.Dialog();
    ASSERT_TRUE(hwnd);
    EXPECT_EQ(nullptr, GetWindow(hwnd, GW_OWNER));
    SendMessageW(GetDlgItem(hwnd, IDOK), BM_CLICK, 0, 0);
    EXPECT_EQ(IDOK, run.Result());
}

TEST_F(DialogTest, ChildFormLivesInItsParentAndDiesWithTheObject) {
    HWND host = CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPEDWINDOW, 0, 0, 200, 100, nullptr, nullptr,
                                nullptr, nullptr);
    HWND form = nullptr;
    {
        TestDialog child(nullptr, kChildId);
        child.secureEdit = false;
        child.pin = L"abc";
        ASSERT_TRUE(child.CreateChild(host));
        form = child.GetSafeHwnd();
        EXPECT_EQ(host, GetParent(form));
        wchar_t text[8] = {};
        GetDlgItemTextW(form, kEditId, text, 8);
        EXPECT_STREQ(L"abc", text);
        child.EndDialog(IDOK);  // harmless for a child form
        EXPECT_TRUE(IsWindow(form));
    }
    EXPECT_FALSE(IsWindow(form));
    DestroyWindow(host);
}

TEST(UiScope, DpiAwarenessIsRestored) {
    using GetFn = DPI_AWARENESS_CONTEXT(WINAPI*)();
    using EqualFn = BOOL(WINAPI*)(DPI_AWARENESS_CONTEXT, DPI_AWARENESS_CONTEXT);
    HMODULE user32 = GetModuleHandleW(L"user32.dll");
    auto get = reinterpret_cast<GetFn>(
        reinterpret_cast<void*>(GetProcAddress(user32, "GetThreadDpiAwarenessContext")));
    auto equal = reinterpret_cast<EqualFn>(
        reinterpret_cast<void*>(GetProcAddress(user32, "AreDpiAwarenessContextsEqual")));
    auto set = reinterpret_cast<DPI_AWARENESS_CONTEXT(WINAPI*)(DPI_AWARENESS_CONTEXT)>(
        reinterpret_cast<void*>(GetProcAddress(user32, "SetThreadDpiAwarenessContext")));
    if (!get || !equal || !set) GTEST_SKIP() << "no per-thread DPI awareness on this system";
    fw::InitActivationContext(nullptr);  // no context: the scope still works
    // Unaware first, so that a scope which forgot to restore is seen.
    const DPI_AWARENESS_CONTEXT original = set(DPI_AWARENESS_CONTEXT_UNAWARE);
    const DPI_AWARENESS_CONTEXT before = get();
    {
        fw::UiScope scope;
        EXPECT_TRUE(equal(get(), DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2) ||
                    equal(get(), DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE));
    }
    EXPECT_TRUE(equal(get(), before));
    set(original);
    fw::ReleaseActivationContext();
}

TEST(ResourceStrings, FallbackWhenMissing) {
    fw::SetResourceModule(nullptr);
    EXPECT_EQ(L"fallback", fw::LoadResString(1, L"fallback"));
    fw::SetResourceModule(GetModuleHandleW(nullptr));
    EXPECT_EQ(L"", fw::LoadResString(54321, nullptr));
    fw::SetResourceModule(nullptr);
}

}  // namespace
