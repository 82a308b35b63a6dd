// The PIN prompt, the PIN-pad prompts and the PIN-always confirmation as a caller and a user see
// them, driven through the exported functions.
#include <gtest/gtest.h>
#include <windows.h>
#include <commctrl.h>
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

// A text of the library's resources.
std::wstring ResourceString(UINT id) {
    static HMODULE resources =
        LoadLibraryExW(L"Resources\\cv.corvana.gui.pinrc.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    wchar_t text[4096] = {};
    LoadStringW(resources, id, text, 4096);
    return text;
}

// Runs calls with onCreation called for each window they create on this thread; how many they
// created.
int WindowsCreatedBy(const std::function<void()>& calls, void (*onCreation)() = [] {}) {
    static void (*hooked)();
    static int created;
    hooked = onCreation;
    created = 0;
    auto onCbt = [](int code, WPARAM wParam, LPARAM lParam) {
        if (code == HCBT_CREATEWND) ++created, hooked();
        return CallNextHookEx(nullptr, code, wParam, lParam);
    };
    HHOOK hook = SetWindowsHookExW(WH_CBT, onCbt, nullptr, GetCurrentThreadId());
    calls();
    UnhookWindowsHookEx(hook);
    return created;
}

// The thread's visible tooltip windows.
int Balloons(DWORD thread) {
    int count = 0;
    for (HWND tip = nullptr; (tip = FindWindowExW(nullptr, tip, TOOLTIPS_CLASSW, nullptr)) != nullptr;)
        count += GetWindowThreadProcessId(tip, nullptr) == thread && IsWindowVisible(tip);
    return count;
}
void KeyUp(HWND edit, UINT vk) { SendMessageW(edit, WM_KEYUP, vk, 0xC0000001); }

// Runs on the dialog's thread, where the key state is read.
void WINAPI TurnCapsLockOn(void* ticks) {
    BYTE keys[256];
    GetKeyboardState(keys);
    keys[VK_CAPITAL] = 1;  // toggled, not held
    SetKeyboardState(keys);
    ++*static_cast<std::atomic<int>*>(ticks);
}
}  // namespace

// The decision is the native PinLengthPolicy's, the values Settings': here, that each setting
// reaches the prompt (the default, 4 to 8 with no minimum, is the too-long PIN's test).
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

TEST(PinPrompt, TooLongPinIsRefusedUntilShortenedThenComesBackInAnsiWithItsLength) {
    PinPrompt prompt;
    TypeText(prompt.Edit(), L"471147119");
    EXPECT_FALSE(IsItemEnabled(prompt.dialog, IDOK));
    PressKey(prompt.dialog, VK_RETURN);  // Enter reaches the dialog even with OK disabled
    Click(prompt.dialog, IDOK);
    EXPECT_FALSE(prompt.Finished());
    Backspace(prompt.Edit());
    EXPECT_TRUE(IsItemEnabled(prompt.dialog, IDOK));
    // The field shows only mask characters: the PIN itself is not in the control.
    EXPECT_EQ(ItemText(prompt.dialog, IDC_PIN_EDIT).find(L"4711"), std::wstring::npos);
    PressKey(prompt.dialog, VK_RETURN);
    ASSERT_EQ(prompt.Finish(), CVPIN_OK);
    ASSERT_EQ(prompt.length, 8u);
    EXPECT_EQ(std::memcmp(prompt.buffer, "47114711", 8), 0);
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

// Refused calls show nothing, not even for a moment.
TEST(PinPrompt, ALockedSessionBadArgumentsOrAnOpenPromptFailWithoutAnyWindow) {
    char* buffer = reinterpret_cast<char*>(1);
    unsigned length = 99;
    std::unique_ptr<PinPrompt> first;
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
                  first.reset(new PinPrompt);  // on its own thread: only one PIN prompt at a time
                  EXPECT_EQ(AskPin(&buffer, &length), CVPIN_FAILED);
                  EXPECT_EQ(PinAlways(), CVPIN_FAILED);
                  // The refusal did not clear the first prompt's claim.
                  EXPECT_EQ(AskPin(&buffer, &length), CVPIN_FAILED);
              }),
              0);
    Click(first->dialog, IDCANCEL);
    EXPECT_EQ(first->Finish(), CVPIN_FAILED);
    PinPrompt second;  // opens: released when the first one ended
}

TEST(PinPrompt, CustomPromptTextUntilResetAndHelpButtonOnlyWithAHelpFile) {
    std::wstring templateText = ItemText(PinPrompt().dialog, IDC_PIN_PROMPT);
    SetPinPromptString(L"Unlock your workstation with the card's PIN");
    const wchar_t key[] = L"SOFTWARE\\Lumetra\\Corvana", help[] = L"C:\\Program Files\\Corvana\\corvana.chm";
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, L"HelpPath", REG_SZ, help, sizeof(help)), ERROR_SUCCESS);
    {
        PinPrompt prompt;
        EXPECT_EQ(ItemText(prompt.dialog, IDC_PIN_PROMPT), L"Unlock your workstation with the card's PIN");
        EXPECT_EQ(ItemText(prompt.dialog, IDC_READER_NAME), kReader);
        EXPECT_NE(SendDlgItemMessageW(prompt.dialog, IDC_PIN_ICON, STM_GETICON, 0, 0), 0);  // the card beside it
        EXPECT_TRUE(IsItemVisible(prompt.dialog, IDC_HELP_BUTTON));
    }
    SetPinPromptString(nullptr);
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, L"HelpPath");
    PinPrompt plain;
    EXPECT_EQ(ItemText(plain.dialog, IDC_PIN_PROMPT), templateText);
    EXPECT_FALSE(IsItemVisible(plain.dialog, IDC_HELP_BUTTON));
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
    const std::wstring text = ResourceString(3071);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(GetErrorString(11), text);
    EXPECT_EQ(GetErrorString(24), text);
}

TEST(PinPrompt, BannerFromTheSettingOrNone) {
    LONG plain = 0;
    const wchar_t* const file = L"testdata\\banner.bmp";  // from tests/data, beside the test programs
    for (const wchar_t* path : {L"", L"C:\\no\\such\\banner.bmp", file}) {  // an empty setting is none
        SCOPED_TRACE(path);
        ScopedSetting banner(L"SecurityModuleMW.AuthenticationDialog.BannerHiRes", path);
        PinPrompt prompt;
        const bool shown = path == file;
        EXPECT_EQ(IsItemVisible(prompt.dialog, IDC_BANNER_PICTURE), shown);
        RECT client, picture, placeholder;
        GetClientRect(prompt.dialog, &client);
        GetClientRect(GetDlgItem(prompt.dialog, IDC_BANNER_PICTURE), &picture);
        GetClientRect(GetDlgItem(prompt.dialog, IDC_BANNER_PLACEHOLDER), &placeholder);
        if (!*path) plain = client.bottom;
        // The banner takes the placeholder's band, so the dialog is taller than without it.
        EXPECT_TRUE(shown ? client.bottom > plain : client.bottom == plain);
        EXPECT_TRUE(!shown || (picture.right == placeholder.right && picture.bottom == placeholder.bottom));
    }
}


// Once the system's own balloon shows, it says PIN instead of password and the edit's is not needed.
TEST(PinPrompt, TimerCallbackRunsWhileOpenAndCapsLockBalloonShowsHidesAndGivesWayToTheSystemsSayingPin) {
    std::atomic<int> ticks{0};
    PinPrompt prompt(kReader, TurnCapsLockOn, &ticks, 10);
    const DWORD thread = prompt.ThreadId();
    HWND edit = prompt.Edit();
    ASSERT_TRUE(WaitUntil([&] { return ticks.load() >= 3; }));
    KeyUp(edit, VK_CAPITAL);
    ASSERT_TRUE(WaitUntil([&] { return Balloons(thread) > 0; }, 3000));
    // Backspace and Shift leave it; a letter hides it.
    KeyUp(edit, VK_SHIFT);
    EXPECT_GT(Balloons(thread), 0);
    KeyUp(edit, 'A');
    EXPECT_TRUE(WaitUntil([&] { return Balloons(thread) == 0; }, 3000));

    // What Windows' own password edit does while Caps Lock is on: it shows a balloon of its own
    // (titled "Caps Lock is On") whose body warns about the password.
    wchar_t text[1040] = L"Having Caps Lock on may cause you to enter your password incorrectly.\r\n\r\n"
                         L"You should press Caps Lock to turn it off before entering your password.";
    TOOLINFOW tool = {sizeof(tool), TTF_TRACK | TTF_IDISHWND, edit, reinterpret_cast<UINT_PTR>(edit)};
    tool.lpszText = text;
    HWND system = CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_NOPREFIX | TTS_BALLOON,
                                  CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, edit, nullptr, nullptr,
                                  nullptr);
    SendMessageW(system, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&tool));
    SendMessageW(system, TTM_TRACKACTIVATE, TRUE, reinterpret_cast<LPARAM>(&tool));
    text[0] = 0;
    SendMessageW(system, TTM_GETTEXTW, 1040, reinterpret_cast<LPARAM>(&tool));
    EXPECT_EQ(std::wstring(text).rfind(L"Having Caps Lock on may cause you to enter your PIN incorrectly.", 0), 0u)
        << std::string(text, text + wcslen(text));
    KeyUp(edit, VK_CAPITAL);  // would show the edit's own balloon again, beside the system's
    EXPECT_FALSE(WaitUntil([&] { return Balloons(thread) > 0; }, 1000));
    DestroyWindow(system);

    Click(prompt.dialog, IDCANCEL);
    prompt.Finish();
    const int after = ticks.load();
    Sleep(100);  // no tick may arrive once the call has returned
    EXPECT_EQ(ticks.load(), after);
}

TEST(KeyPadPrompt, OnePadPromptAtATimeButPinAlwaysMayJoinAndEitherCancelEndsIt) {
    Opened pad([] { return KeyPad(L"Type your PIN on the reader now"); });
    EXPECT_EQ(ItemText(pad.dialog, IDC_KP_PROMPT), L"Type your PIN on the reader now");
    EXPECT_EQ(KeyPad(), CVPIN_FAILED);
    EXPECT_EQ(KeyPadChange(FALSE), CVPIN_FAILED);
    Opened always(PinAlways);
    Click(always.dialog, IDOK);
    EXPECT_EQ(always.Finish(), CVPIN_OK);
    // Either cancel function closes whichever pad prompt is open.
    CancelKeyPadChgPinPrompt();
    EXPECT_EQ(pad.Finish(), CVPIN_FAILED);
    // Nothing left to cancel: a harmless call.
    CancelKeyPadPrompt();
    CancelKeyPadChgPinPrompt();
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
    for (BOOL secondStep : {FALSE, TRUE}) {
        Opened change([=] { return KeyPadChange(secondStep); });
        EXPECT_EQ(ItemText(change.dialog, IDC_KP_CHANGE_PROMPT),
                  ResourceString(secondStep ? IDS_KEYPAD_CHANGE_NEW : IDS_KEYPAD_CHANGE_CURRENT));
        // The title bar cannot close a pad prompt.
        const UINT close = GetMenuState(GetSystemMenu(change.dialog, FALSE), SC_CLOSE, MF_BYCOMMAND);
        EXPECT_TRUE(close & (MF_GRAYED | MF_DISABLED));
        CancelKeyPadChgPinPrompt();
        change.Finish();
    }
}

TEST(KeyPadPrompt, ACancelBeforeThePromptAppearsStillEndsIt) {
    // Cancelled from the prompt's own thread before its window exists: a card answering that early.
    Caller caller([] {
        int result = 0;
        WindowsCreatedBy([&] { result = KeyPad(); }, CancelKeyPadPrompt);
        return result;
    });
    ASSERT_TRUE(caller.Wait());
    EXPECT_EQ(caller.Result(), CVPIN_FAILED);
    // Spent: the next prompt stays until cancelled again.
    Opened next([] { return KeyPad(); });
    EXPECT_NE(next.dialog, nullptr);
    CancelKeyPadPrompt();
    EXPECT_EQ(next.Finish(), CVPIN_FAILED);
}

TEST(About, ShowsProductAndVersion) {
    Opened about([] { return (int)ShowAbout(0, L"Scripted check"); });
    EXPECT_NE(ItemText(about.dialog, IDC_ABOUT_VERSION).find(L"1.0"), std::wstring::npos);
    EXPECT_FALSE(ItemText(about.dialog, IDC_ABOUT_PRODUCT).empty());
    EXPECT_EQ(ItemText(about.dialog, IDC_ABOUT_TEXT), L"Scripted check");
    Click(about.dialog, IDOK);
    EXPECT_EQ(about.Finish(), IDOK);
}
