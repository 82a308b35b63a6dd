// The PIN prompt, the PIN-pad prompts and the PIN-always confirmation as a caller and a user see
// them, driven through the exported functions.
#include <gtest/gtest.h>
#include <windows.h>
#include <commctrl.h>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include "cvpingui.h"
#include "driver_win.h"
#include "resource_ids.h"

using namespace drv;

namespace {

const wchar_t kReader[] = L"Simulated Reader 0";

// What GetPINFromUser gives back, freed after the call has returned.
struct PinOut {
    char* buffer = reinterpret_cast<char*>(1);
    unsigned length = 12345;
    ~PinOut() {
        if (buffer != reinterpret_cast<char*>(1)) FreeGetPinBuffer(buffer, length);
    }
};

// GetPINFromUser on its own thread; its first dialog must appear.
struct PinPrompt : PinOut, Opened {
    explicit PinPrompt(const wchar_t* reader = kReader, TimerCallback callback = nullptr, void* context = nullptr,
                       unsigned period = 0, int lastTry = 0)
        : Opened([=] {
              return GetPINFromUser(nullptr, reader, lastTry, 4, 8, &buffer, &length, callback, context, period);
          }) {
        EXPECT_NE(dialog, nullptr) << "the prompt did not open";
    }
    HWND Edit() const { return GetDlgItem(dialog, IDC_PIN_EDIT); }
};

// The prompts called as a caller calls them, on the test's thread or a Caller's.
int AskPin(char** buffer, unsigned* length) {
    return GetPINFromUser(nullptr, kReader, 0, 4, 8, buffer, length, nullptr, nullptr, 0);
}
int KeyPad(const wchar_t* prompt = nullptr) {
    return ShowKeyPadPrompt(nullptr, kReader, prompt, 0, nullptr, nullptr, 0);
}
int KeyPadChange(BOOL secondStep) {
    return ShowKeyPadChgPinPrompt(nullptr, kReader, nullptr, secondStep, 0, nullptr, nullptr, 0);
}
int PinAlways() { return ShowPINAlwaysPrompt(nullptr, kReader); }

// Runs calls with onCreation called for each window they create on this thread.
int WithCreationHook(void (*onCreation)(), const std::function<int()>& calls) {
    static void (*hooked)() = nullptr;
    hooked = onCreation;
    HHOOK hook = SetWindowsHookExW(
        WH_CBT,
        [](int code, WPARAM wParam, LPARAM lParam) {
            if (code == HCBT_CREATEWND) hooked();
            return CallNextHookEx(nullptr, code, wParam, lParam);
        },
        nullptr, GetCurrentThreadId());
    const int result = calls();
    UnhookWindowsHookEx(hook);
    return result;
}

// How many windows the calls create on this thread.
int WindowsCreatedBy(const std::function<void()>& calls) {
    static int created;
    created = 0;
    WithCreationHook([] { ++created; }, [&] { return calls(), 0; });
    return created;
}

}  // namespace

// The decision is the native PinLengthPolicy's, the values Settings': here, that each setting
// reaches the prompt (the default, 4 to 8 with no minimum, is TooLongPinIsRefusedUntilShortened's).
TEST(PinPrompt, OkFollowsTheLengthSettings) {
    const struct {
        const wchar_t* setting;
        int length;
        bool okEnabled;
    } cases[] = {{L"Corvana.PINPolicies.PreventSmallPINEntry", 3, false},
                 {L"Corvana.PINPolicies.EnableLargePINEntry", 20, true}};
    for (const auto& c : cases) {
        ScopedSetting setting(c.setting, 1);
        PinPrompt prompt;
        TypeText(prompt.Edit(), std::wstring(c.length, L'7').c_str());
        EXPECT_EQ(IsItemEnabled(prompt.dialog, IDOK), c.okEnabled);
    }
}

TEST(PinPrompt, TypedPinComesBackInAnsiWithItsLength) {
    PinPrompt prompt;
    TypeText(prompt.Edit(), L"4711x");
    Backspace(prompt.Edit());
    // The field shows only mask characters: the PIN itself is not in the control.
    EXPECT_EQ(ItemText(prompt.dialog, IDC_PIN_EDIT).find(L"4711"), std::wstring::npos);
    Click(prompt.dialog, IDOK);
    ASSERT_EQ(prompt.Finish(), CVPIN_OK);
    ASSERT_EQ(prompt.length, 4u);
    EXPECT_EQ(std::memcmp(prompt.buffer, "4711", 4), 0);
}

TEST(PinPrompt, TooLongPinIsRefusedUntilShortened) {
    PinPrompt prompt;
    TypeText(prompt.Edit(), L"123456789");
    EXPECT_FALSE(IsItemEnabled(prompt.dialog, IDOK));
    PressKey(prompt.dialog, VK_RETURN);  // Enter reaches the dialog even with OK disabled
    Click(prompt.dialog, IDOK);
    EXPECT_FALSE(prompt.Finished());
    Backspace(prompt.Edit());
    EXPECT_TRUE(IsItemEnabled(prompt.dialog, IDOK));
    PressKey(prompt.dialog, VK_RETURN);
    ASSERT_EQ(prompt.Finish(), CVPIN_OK);
    EXPECT_EQ(prompt.length, 8u);
}

TEST(PinPrompt, EnterOnNothingGivesNoBufferCancelAndEscapeFail) {
    const struct {
        const wchar_t* typed;
        UINT key;  // 0: the Cancel button
        int result;
    } cases[] = {{L"", VK_RETURN, CVPIN_OK}, {L"1234", 0, CVPIN_FAILED}, {L"1234", VK_ESCAPE, CVPIN_FAILED}};
    for (const auto& c : cases) {
        PinPrompt prompt;
        TypeText(prompt.Edit(), c.typed);
        c.key ? PressKey(prompt.dialog, c.key) : Click(prompt.dialog, IDCANCEL);
        EXPECT_EQ(prompt.Finish(), c.result) << c.key;
        EXPECT_EQ(prompt.buffer, nullptr) << c.key;
    }
}

TEST(PinPrompt, OnlyOnePinPromptAtATime) {
    PinPrompt first;
    char* buffer = nullptr;
    unsigned length = 0;
    EXPECT_EQ(WindowsCreatedBy([&] {
                  EXPECT_EQ(AskPin(&buffer, &length), CVPIN_FAILED);
                  EXPECT_EQ(PinAlways(), CVPIN_FAILED);
                  // The refusal did not clear the first prompt's claim.
                  EXPECT_EQ(AskPin(&buffer, &length), CVPIN_FAILED);
              }),
              0);
    Click(first.dialog, IDCANCEL);
    EXPECT_EQ(first.Finish(), CVPIN_FAILED);
    PinPrompt second;  // opens: released when the first one ended
}

// Which names match and which codes lock are the native WatchRules'; every prompt shares this
// watching (the pad prompts' tests close them by both).
TEST(PinPrompt, RemovalOfItsCardAndSessionLockCloseItOtherEventsDoNot) {
    const struct {
        const wchar_t* reader;  // the prompt's; without a name, any removal closes it
        std::function<int()> ignored, closes;
    } cases[] = {
        {kReader, [] { return RemoveCard(L"Another Reader 1"); }, [] { return RemoveCard(L"SIMULATED reader 0"); }},
        {nullptr, [] { return 1; }, [] { return RemoveCard(L"Whatever Reader"); }},
        {kReader, [] { return SessionEvent(10061); }, [] { return SessionEvent(10065); }},  // unlock, lock
    };
    for (const auto& c : cases) {
        PinPrompt prompt(c.reader);
        EXPECT_GE(c.ignored(), 1);
        EXPECT_FALSE(WaitUntil([&] { return prompt.Finished(); }, 300));
        EXPECT_GE(c.closes(), 1);
        EXPECT_EQ(prompt.Finish(), CVPIN_FAILED);
    }
}

TEST(PinPrompt, ALockedSessionOrBadArgumentsFailWithoutAnyWindow) {
    char* buffer = reinterpret_cast<char*>(1);
    unsigned length = 99;
    EXPECT_EQ(WindowsCreatedBy([&] {
                  {
                      LockedSession locked;
                      EXPECT_EQ(AskPin(&buffer, &length), CVPIN_FAILED);
                      EXPECT_EQ(PinAlways(), CVPIN_FAILED);
                      EXPECT_EQ(KeyPad(), CVPIN_FAILED);
                  }
                  EXPECT_EQ(buffer, nullptr);
                  EXPECT_EQ(AskPin(nullptr, &length), CVPIN_FAILED);
                  EXPECT_EQ(AskPin(&buffer, nullptr), CVPIN_FAILED);
                  FreeGetPinBuffer(nullptr, 16);
                  FreeReaderNameBuffer(nullptr);
              }),
              0);
}

TEST(PinPrompt, TimerCallbackRunsWhileOpen) {
    std::atomic<int> ticks{0};
    PinPrompt prompt(kReader, [](void* count) { static_cast<std::atomic<int>*>(count)->fetch_add(1); }, &ticks, 20);
    EXPECT_TRUE(WaitUntil([&] { return ticks.load() >= 3; }));
    Click(prompt.dialog, IDCANCEL);
    prompt.Finish();
    int after = ticks.load();
    Sleep(100);  // no tick may arrive once the call has returned
    EXPECT_EQ(ticks.load(), after);
}

TEST(PinPrompt, CustomPromptTextUntilReset) {
    std::wstring templateText = ItemText(PinPrompt().dialog, IDC_PIN_PROMPT);
    SetPinPromptString(L"Unlock your workstation with the card's PIN");
    {
        PinPrompt prompt;
        EXPECT_EQ(ItemText(prompt.dialog, IDC_PIN_PROMPT), L"Unlock your workstation with the card's PIN");
        EXPECT_EQ(ItemText(prompt.dialog, IDC_READER_NAME), kReader);
        EXPECT_NE(SendDlgItemMessageW(prompt.dialog, IDC_PIN_ICON, STM_GETICON, 0, 0), 0);  // the card beside it
    }
    SetPinPromptString(nullptr);
    EXPECT_EQ(ItemText(PinPrompt().dialog, IDC_PIN_PROMPT), templateText);
}

TEST(PinPrompt, LastTryWarningComesFirst) {
    for (int answer : {IDCANCEL, IDOK}) {
        PinPrompt warning(kReader, nullptr, nullptr, 0, /*last try*/ 1);
        EXPECT_EQ(warning.Edit(), nullptr);  // the warning, not yet the prompt
        Click(warning.dialog, answer);
        HWND prompt = nullptr;
        if (answer == IDOK) {  // then the prompt follows
            ASSERT_TRUE(WaitUntil([&] { return GetDlgItem(prompt = WaitForDialog(warning, 100), IDC_PIN_EDIT); }));
            Click(prompt, IDCANCEL);
        }
        EXPECT_EQ(warning.Finish(), CVPIN_FAILED);
    }
}

// The mapping is the native ErrorStrings tests'; here, that the texts come from the resources.
TEST(ErrorStrings, MappedCodesLoadTheirTextOthersKeepThePrevious) {
    HMODULE resources = LoadLibraryExW(L"Resources\\cv.corvana.gui.pinrc.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(resources, nullptr);
    wchar_t text[4096] = {};
    LoadStringW(resources, 3071, text, 4096);
    FreeLibrary(resources);
    EXPECT_NE(text[0], L'\0');
    EXPECT_STREQ(GetErrorString(11), text);
    EXPECT_STREQ(GetErrorString(24), text);
}

namespace {
// A small 24-bit bitmap file made for the test.
std::wstring WriteBitmapFile() {
    wchar_t folder[MAX_PATH], path[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    GetTempFileNameW(folder, L"bnr", 0, path);
    const DWORD headers = sizeof(BITMAPFILEHEADER) + sizeof(BITMAPINFOHEADER), pixels = 40 * 3 * 10;
    BITMAPFILEHEADER file = {0x4D42, headers + pixels, 0, 0, headers};
    BITMAPINFOHEADER info = {sizeof(info), 40, 10, 1, 24, BI_RGB};
    std::string bytes = std::string(reinterpret_cast<char*>(&file), sizeof(file)) +
                        std::string(reinterpret_cast<char*>(&info), sizeof(info)) + std::string(pixels, '\x60');
    FILE* out = _wfopen(path, L"wb");
    fwrite(bytes.data(), 1, bytes.size(), out);
    fclose(out);
    return path;
}

RECT ClientRect(HWND window) {
    RECT r = {};
    GetClientRect(window, &r);
    return r;
}
}  // namespace

TEST(PinPrompt, BannerFromTheSettingOrNone) {
    const std::wstring file = WriteBitmapFile();
    LONG plain = 0;
    for (const wchar_t* path : {L"", L"C:\\no\\such\\banner.bmp", file.c_str()}) {
        SCOPED_TRACE(path);
        std::unique_ptr<ScopedSetting> banner;  // none for the empty path
        if (*path) banner.reset(new ScopedSetting(L"SecurityModuleMW.AuthenticationDialog.BannerHiRes", path));
        PinPrompt prompt;
        const bool shown = path == file.c_str();
        EXPECT_EQ(IsItemVisible(prompt.dialog, IDC_BANNER_PICTURE), shown);
        const LONG bottom = ClientRect(prompt.dialog).bottom;
        if (!*path) plain = bottom;
        // The banner takes the placeholder's band, so the dialog is taller than without it.
        EXPECT_TRUE(shown ? bottom > plain : bottom == plain);
        const RECT picture = ClientRect(GetDlgItem(prompt.dialog, IDC_BANNER_PICTURE));
        const RECT placeholder = ClientRect(GetDlgItem(prompt.dialog, IDC_BANNER_PLACEHOLDER));
        EXPECT_TRUE(!shown || (picture.right == placeholder.right && picture.bottom == placeholder.bottom));
    }
    DeleteFileW(file.c_str());
}

namespace {
void WINAPI TurnCapsLockOn(void* ticks) {
    BYTE keys[256];
    GetKeyboardState(keys);
    keys[VK_CAPITAL] = 1;  // toggled, not held
    SetKeyboardState(keys);
    if (ticks) static_cast<std::atomic<int>*>(ticks)->fetch_add(1);
}
// The thread's tooltip windows: all of them, or the visible ones only.
int Balloons(DWORD thread, bool visibleOnly = false) {
    std::pair<bool, int> count{visibleOnly, 0};
    auto visit = [](HWND hwnd, LPARAM lParam) -> BOOL {
        auto& c = *reinterpret_cast<std::pair<bool, int>*>(lParam);
        wchar_t cls[64] = {};
        GetClassNameW(hwnd, cls, 64);
        c.second += _wcsicmp(cls, TOOLTIPS_CLASSW) == 0 && (!c.first || IsWindowVisible(hwnd));
        return TRUE;
    };
    EnumThreadWindows(thread, visit, reinterpret_cast<LPARAM>(&count));
    return count.second;
}
// The balloon's tool for the edit.
TOOLINFOW EditTool(HWND edit, const wchar_t* text) {
    TOOLINFOW tool = {sizeof(tool), TTF_TRACK | TTF_IDISHWND, edit, reinterpret_cast<UINT_PTR>(edit)};
    tool.lpszText = const_cast<wchar_t*>(text);
    return tool;
}
}  // namespace

TEST(PinPrompt, CapsLockBalloonShowsOnReleaseAndHidesOnTyping) {
    // The callback runs on the dialog's thread, where the key state is read.
    std::atomic<int> ticks{0};
    PinPrompt prompt(kReader, TurnCapsLockOn, &ticks, 10);
    DWORD thread = prompt.ThreadId();
    ASSERT_TRUE(WaitUntil([&] { return ticks.load() > 0; }));
    SendMessageW(prompt.Edit(), WM_KEYUP, VK_CAPITAL, 0xC0000001);
    ASSERT_TRUE(WaitUntil([&] { return Balloons(thread, true) > 0; }, 3000));
    // Backspace and Shift leave it; a letter hides it.
    SendMessageW(prompt.Edit(), WM_KEYUP, VK_SHIFT, 0xC0000001);
    EXPECT_GT(Balloons(thread, true), 0);
    SendMessageW(prompt.Edit(), WM_KEYUP, 'A', 0xC0000001);
    EXPECT_TRUE(WaitUntil([&] { return Balloons(thread, true) == 0; }, 3000));
}

namespace {
// What Windows' own password edit does while Caps Lock is on: it shows a balloon of its own,
// titled "Caps Lock is On", whose body warns about the password.
struct SystemBalloon {
    std::atomic<HWND> edit{nullptr};
    std::atomic<HWND> balloon{nullptr};
};
void WINAPI ShowSystemBalloon(void* context) {
    auto* system = static_cast<SystemBalloon*>(context);
    HWND edit = system->edit;
    if (!edit || system->balloon) return;
    TurnCapsLockOn(nullptr);
    HWND balloon = CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_NOPREFIX | TTS_BALLOON,
                                   CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, edit, nullptr, nullptr,
                                   nullptr);
    TOOLINFOW tool = EditTool(edit, L"Having Caps Lock on may cause you to enter your password incorrectly.\r\n\r\n"
                                    L"You should press Caps Lock to turn it off before entering your password.");
    SendMessageW(balloon, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&tool));
    SendMessageW(balloon, TTM_SETTITLEW, TTI_WARNING, reinterpret_cast<LPARAM>(L"Caps Lock is On"));
    SendMessageW(balloon, TTM_TRACKACTIVATE, TRUE, reinterpret_cast<LPARAM>(&tool));
    system->balloon = balloon;
}
}  // namespace

TEST(PinPrompt, SystemCapsLockBalloonSaysPinAndTheEditDrawsNoSecond) {
    SystemBalloon system;
    PinPrompt prompt(kReader, ShowSystemBalloon, &system, 10);
    system.edit = prompt.Edit();
    ASSERT_TRUE(WaitUntil([&] { return system.balloon.load() != nullptr; }));
    wchar_t text[1040] = {};
    TOOLINFOW tool = EditTool(prompt.Edit(), text);
    SendMessageW(system.balloon, TTM_GETTEXTW, 1040, reinterpret_cast<LPARAM>(&tool));
    EXPECT_EQ(std::wstring(text).rfind(L"Having Caps Lock on may cause you to enter your PIN incorrectly.", 0), 0u)
        << std::string(text, text + wcslen(text));
    // Releasing Caps Lock would create the edit's own balloon, were the system's not there.
    SendMessageW(prompt.Edit(), WM_KEYUP, VK_CAPITAL, 0xC0000001);
    EXPECT_EQ(Balloons(prompt.ThreadId()), 1);
}

TEST(PinPrompt, HelpButtonOnlyWithAHelpFile) {
    EXPECT_FALSE(IsItemVisible(PinPrompt().dialog, IDC_HELP_BUTTON));
    const wchar_t key[] = L"SOFTWARE\\Lumetra\\Corvana", help[] = L"C:\\Program Files\\Corvana\\corvana.chm";
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, L"HelpPath", REG_SZ, help, sizeof(help)), ERROR_SUCCESS);
    EXPECT_TRUE(IsItemVisible(PinPrompt().dialog, IDC_HELP_BUTTON));
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, L"HelpPath");
}

TEST(KeyPadPrompt, CancelFromAnotherThreadEndsIt) {
    Opened pad([] { return KeyPad(L"Type your PIN on the reader now"); });
    EXPECT_EQ(ItemText(pad.dialog, IDC_KP_PROMPT), L"Type your PIN on the reader now");
    CancelKeyPadPrompt();
    EXPECT_EQ(pad.Finish(), CVPIN_FAILED);
    // Nothing left to cancel: a harmless call.
    CancelKeyPadPrompt();
    CancelKeyPadChgPinPrompt();
}

TEST(KeyPadPrompt, OnePadPromptAtATimeButPinAlwaysMayJoin) {
    Opened pad([] { return KeyPad(); });
    EXPECT_NE(pad.dialog, nullptr);
    EXPECT_EQ(KeyPad(), CVPIN_FAILED);
    EXPECT_EQ(KeyPadChange(FALSE), CVPIN_FAILED);
    Opened always(PinAlways);
    Click(always.dialog, IDOK);
    EXPECT_EQ(always.Finish(), CVPIN_OK);
    // Either cancel function closes whichever pad prompt is open.
    CancelKeyPadChgPinPrompt();
    EXPECT_EQ(pad.Finish(), CVPIN_FAILED);
}

TEST(KeyPadPrompt, PadAndPinAlwaysPromptsCloseOnTheirCardsRemovalAndOnLock) {
    const std::function<int()> prompts[] = {[] { return KeyPad(); }, [] { return KeyPadChange(TRUE); }, PinAlways};
    for (const auto& open : prompts) {
        for (bool lock : {false, true}) {
            Opened prompt(open);
            EXPECT_NE(prompt.dialog, nullptr);
            lock ? SessionEvent(CVPIN_SESSION_LOCKING) : RemoveCard(kReader);
            EXPECT_EQ(prompt.Finish(), CVPIN_FAILED) << lock;
        }
    }
}

TEST(KeyPadPrompt, ChangePromptWordingFollowsTheStep) {
    HMODULE resources = LoadLibraryExW(L"Resources\\cv.corvana.gui.pinrc.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(resources, nullptr);
    for (BOOL secondStep : {FALSE, TRUE}) {
        wchar_t expected[512] = {};
        LoadStringW(resources, secondStep ? IDS_KEYPAD_CHANGE_NEW : IDS_KEYPAD_CHANGE_CURRENT, expected, 512);
        Opened change([=] { return KeyPadChange(secondStep); });
        EXPECT_EQ(ItemText(change.dialog, IDC_KP_CHANGE_PROMPT), expected);
        // The title bar cannot close a pad prompt.
        const UINT close = GetMenuState(GetSystemMenu(change.dialog, FALSE), SC_CLOSE, MF_BYCOMMAND);
        EXPECT_TRUE(close & (MF_GRAYED | MF_DISABLED));
        CancelKeyPadChgPinPrompt();
        change.Finish();
    }
    FreeLibrary(resources);
}

TEST(KeyPadPrompt, ACancelBeforeThePromptAppearsStillEndsIt) {
    // Cancelled from the prompt's own thread before its window exists: a card answering that early.
    Caller caller([] { return WithCreationHook(CancelKeyPadPrompt, [] { return KeyPad(); }); });
    ASSERT_TRUE(caller.Wait());
    EXPECT_EQ(caller.Result(), CVPIN_FAILED);
    // Spent: the next prompt stays until cancelled again.
    Opened next([] { return KeyPad(); });
    EXPECT_NE(next.dialog, nullptr);
    CancelKeyPadPrompt();
    next.Finish();
}

TEST(About, ShowsProductAndVersion) {
    Opened about([] { return (int)ShowAbout(0, L"Scripted check"); });
    EXPECT_NE(ItemText(about.dialog, IDC_ABOUT_VERSION).find(L"1.0"), std::wstring::npos);
    EXPECT_FALSE(ItemText(about.dialog, IDC_ABOUT_PRODUCT).empty());
    EXPECT_EQ(ItemText(about.dialog, IDC_ABOUT_TEXT), L"Scripted check");
    Click(about.dialog, IDOK);
    EXPECT_EQ(about.Finish(), IDOK);
}
