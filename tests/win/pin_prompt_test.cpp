// The PIN prompt as a caller and a user see it, driven through the exported functions.
#include <gtest/gtest.h>
#include <windows.h>
#include <commctrl.h>
#include <cstring>
#include <string>
#include "cvpingui.h"
#include "driver_win.h"
#include "resource_ids.h"

using namespace drv;

namespace {

const wchar_t kReader[] = L"Simulated Reader 0";

struct PinResult {
    char* buffer = reinterpret_cast<char*>(1);
    unsigned length = 12345;
};

// Opens GetPINFromUser on its own thread and waits for its dialog, which must appear.
class PinPrompt {
public:
    explicit PinPrompt(unsigned minLen = 4, unsigned maxLen = 8, const wchar_t* reader = kReader,
                       TimerCallback callback = nullptr, void* context = nullptr, unsigned period = 0)
        : m_caller([=] {
              return GetPINFromUser(nullptr, reader, 0, minLen, maxLen, &m_pin.buffer, &m_pin.length, callback,
                                    context, period);
          }) {
        m_dialog = WaitForDialog(m_caller);
        EXPECT_NE(m_dialog, nullptr) << "the prompt did not open";
    }
    ~PinPrompt() {
        if (!m_caller.Finished() && m_dialog) Click(m_dialog, IDCANCEL);
        m_caller.Wait();
        if (m_pin.buffer != reinterpret_cast<char*>(1)) FreeGetPinBuffer(m_pin.buffer, m_pin.length);
    }
    HWND Dialog() const { return m_dialog; }
    HWND Edit() const { return GetDlgItem(m_dialog, IDC_PIN_EDIT); }
    Caller& Call() { return m_caller; }
    int Finish() {
        EXPECT_TRUE(m_caller.Wait());
        return m_caller.Result();
    }
    PinResult& Pin() { return m_pin; }

private:
    PinResult m_pin;
    HWND m_dialog = nullptr;
    Caller m_caller;
};

std::wstring Repeat(wchar_t ch, int n) { return std::wstring(n, ch); }

}  // namespace

TEST(PinPrompt, OkFollowsTheLengthPolicy) {
    struct Case {
        DWORD preventSmall, enableLarge;  // 2: setting absent
        int length;
        bool okEnabled;
    } cases[] = {
        {2, 2, 0, true},  {2, 2, 3, true},  {2, 2, 8, true},  {2, 2, 9, false},  // defaults: no minimum
        {1, 2, 0, false}, {1, 2, 3, false}, {1, 2, 4, true},  {1, 2, 9, false},  // minimum applies
        {2, 1, 20, true}, {0, 0, 9, false}, {1, 1, 3, false}, {1, 1, 20, true},  // maximum lifted; 0 is off
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "preventSmall " << c.preventSmall << " enableLarge " << c.enableLarge
                                        << " length " << c.length);
        std::unique_ptr<ScopedSetting> small, large;
        if (c.preventSmall != 2) small = std::make_unique<ScopedSetting>(L"Corvana.PINPolicies.PreventSmallPINEntry", c.preventSmall);
        if (c.enableLarge != 2) large = std::make_unique<ScopedSetting>(L"Corvana.PINPolicies.EnableLargePINEntry", c.enableLarge);
        PinPrompt prompt(4, 8);
        TypeText(prompt.Edit(), Repeat(L'7', c.length).c_str());
        EXPECT_EQ(IsItemEnabled(prompt.Dialog(), IDOK), c.okEnabled);
    }
}

TEST(PinPrompt, TypedPinComesBackInAnsiWithItsLength) {
    PinPrompt prompt;
    TypeText(prompt.Edit(), L"4711x");
    Backspace(prompt.Edit());
    // The field shows only mask characters: the PIN itself is not in the control.
    EXPECT_EQ(ItemText(prompt.Dialog(), IDC_PIN_EDIT).find(L"4711"), std::wstring::npos);
    Click(prompt.Dialog(), IDOK);
    ASSERT_EQ(prompt.Finish(), CVPIN_OK);
    ASSERT_EQ(prompt.Pin().length, 4u);
    EXPECT_EQ(std::memcmp(prompt.Pin().buffer, "4711", 4), 0);
}

TEST(PinPrompt, TooLongPinIsRefusedUntilShortened) {
    PinPrompt prompt(4, 8);
    TypeText(prompt.Edit(), L"123456789");
    EXPECT_FALSE(IsItemEnabled(prompt.Dialog(), IDOK));
    PressKey(prompt.Dialog(), VK_RETURN);  // Enter reaches the dialog even with OK disabled
    Click(prompt.Dialog(), IDOK);
    EXPECT_FALSE(prompt.Call().Finished());
    Backspace(prompt.Edit());
    EXPECT_TRUE(IsItemEnabled(prompt.Dialog(), IDOK));
    PressKey(prompt.Dialog(), VK_RETURN);
    ASSERT_EQ(prompt.Finish(), CVPIN_OK);
    EXPECT_EQ(prompt.Pin().length, 8u);
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
        c.key ? PressKey(prompt.Dialog(), c.key) : Click(prompt.Dialog(), IDCANCEL);
        EXPECT_EQ(prompt.Finish(), c.result) << c.key;
        EXPECT_EQ(prompt.Pin().buffer, nullptr) << c.key;
    }
}

TEST(PinPrompt, OnlyOnePinPromptAtATime) {
    PinPrompt first;
    char* buffer = nullptr;
    unsigned length = 0;
    EXPECT_EQ(GetPINFromUser(nullptr, kReader, 0, 4, 8, &buffer, &length, nullptr, nullptr, 0), CVPIN_FAILED);
    EXPECT_EQ(ShowPINAlwaysPrompt(nullptr, kReader), CVPIN_FAILED);
    EXPECT_EQ(VisibleWindows(GetCurrentThreadId()), 0);
    // The refusal did not clear the first prompt's claim.
    EXPECT_EQ(GetPINFromUser(nullptr, kReader, 0, 4, 8, &buffer, &length, nullptr, nullptr, 0), CVPIN_FAILED);
    Click(first.Dialog(), IDCANCEL);
    EXPECT_EQ(first.Finish(), CVPIN_FAILED);
    PinPrompt second;  // opens: released when the first one ended
}

TEST(PinPrompt, RemovalOfItsCardOrWithoutANameOfAnyClosesIt) {
    PinPrompt prompt(4, 8, L"Simulated Reader 0");
    EXPECT_GE(RemoveCard(L"Another Reader 1"), 1);
    EXPECT_FALSE(WaitUntil([&] { return prompt.Call().Finished(); }, 300));
    EXPECT_GE(RemoveCard(L"SIMULATED reader 0"), 1);
    EXPECT_EQ(prompt.Finish(), CVPIN_FAILED);
    // Without a reader name, any removal closes it.
    PinPrompt any(4, 8, L"");
    RemoveCard(L"Whatever Reader");
    EXPECT_EQ(any.Finish(), CVPIN_FAILED);
}

TEST(PinPrompt, SessionLockClosesItOtherSessionEventsDoNot) {
    for (int lockCode : {10060, 10065}) {
        PinPrompt prompt;
        EXPECT_GE(SessionEvent(10061), 1);  // an unlock, say
        EXPECT_FALSE(WaitUntil([&] { return prompt.Call().Finished(); }, 300));
        SessionEvent(lockCode);
        EXPECT_EQ(prompt.Finish(), CVPIN_FAILED);
    }
}

namespace {
HHOOK g_cbtHook = nullptr;
int g_windowsCreated = 0;
LRESULT CALLBACK CountCreations(int code, WPARAM wParam, LPARAM lParam) {
    if (code == HCBT_CREATEWND) g_windowsCreated++;
    return CallNextHookEx(g_cbtHook, code, wParam, lParam);
}
}  // namespace

TEST(PinPrompt, LockedSessionRefusesWithoutAnyWindow) {
    LockedSession locked;
    g_windowsCreated = 0;
    g_cbtHook = SetWindowsHookExW(WH_CBT, CountCreations, nullptr, GetCurrentThreadId());
    char* buffer = reinterpret_cast<char*>(1);
    unsigned length = 99;
    EXPECT_EQ(GetPINFromUser(nullptr, kReader, 0, 4, 8, &buffer, &length, nullptr, nullptr, 0), CVPIN_FAILED);
    EXPECT_EQ(ShowPINAlwaysPrompt(nullptr, kReader), CVPIN_FAILED);
    EXPECT_EQ(ShowKeyPadPrompt(nullptr, kReader, nullptr, 0, nullptr, nullptr, 0), CVPIN_FAILED);
    UnhookWindowsHookEx(g_cbtHook);
    EXPECT_EQ(g_windowsCreated, 0);
    EXPECT_EQ(buffer, nullptr);
}

TEST(PinPrompt, BadArgumentsFailWithoutAWindow) {
    unsigned length = 0;
    char* buffer = nullptr;
    EXPECT_EQ(GetPINFromUser(nullptr, kReader, 0, 4, 8, nullptr, &length, nullptr, nullptr, 0), CVPIN_FAILED);
    EXPECT_EQ(GetPINFromUser(nullptr, kReader, 0, 4, 8, &buffer, nullptr, nullptr, nullptr, 0), CVPIN_FAILED);
    FreeGetPinBuffer(nullptr, 16);
    FreeReaderNameBuffer(nullptr);
    // A null reader is "any reader", not a crash.
    PinPrompt prompt(4, 8, nullptr);
}

namespace {
void WINAPI CountTick(void* context) { static_cast<std::atomic<int>*>(context)->fetch_add(1); }
}  // namespace

TEST(PinPrompt, TimerCallbackRunsWhileOpen) {
    std::atomic<int> ticks{0};
    PinPrompt prompt(4, 8, kReader, CountTick, &ticks, 20);
    EXPECT_TRUE(WaitUntil([&] { return ticks.load() >= 3; }));
    Click(prompt.Dialog(), IDCANCEL);
    prompt.Finish();
    int after = ticks.load();
    Sleep(100);  // no tick may arrive once the call has returned
    EXPECT_EQ(ticks.load(), after);
}

TEST(PinPrompt, CustomPromptTextUntilReset) {
    std::wstring templateText;
    {
        PinPrompt prompt;
        templateText = ItemText(prompt.Dialog(), IDC_PIN_PROMPT);
        EXPECT_NE(SendDlgItemMessageW(prompt.Dialog(), IDC_PIN_ICON, STM_GETICON, 0, 0), 0);  // the card beside it
    }
    SetPinPromptString(L"Unlock your workstation with the card's PIN");
    {
        PinPrompt prompt;
        EXPECT_EQ(ItemText(prompt.Dialog(), IDC_PIN_PROMPT), L"Unlock your workstation with the card's PIN");
        EXPECT_EQ(ItemText(prompt.Dialog(), IDC_READER_NAME), kReader);
    }
    SetPinPromptString(nullptr);
    PinPrompt prompt;
    EXPECT_EQ(ItemText(prompt.Dialog(), IDC_PIN_PROMPT), templateText);
}

TEST(PinPrompt, LastTryWarningComesFirst) {
    for (int answer : {IDCANCEL, IDOK}) {
        PinResult pin;
        Caller caller([&] {
            return GetPINFromUser(nullptr, kReader, 1, 4, 8, &pin.buffer, &pin.length, nullptr, nullptr, 0);
        });
        HWND box = WaitForDialog(caller);
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(GetDlgItem(box, IDC_PIN_EDIT), nullptr);  // the warning, not yet the prompt
        Click(box, answer);
        if (answer == IDOK) {  // then the prompt follows
            HWND prompt = nullptr;
            ASSERT_TRUE(WaitUntil([&] {
                prompt = WaitForDialog(caller, 100);
                return prompt && GetDlgItem(prompt, IDC_PIN_EDIT);
            }));
            Click(prompt, IDCANCEL);
        }
        ASSERT_TRUE(caller.Wait());
        EXPECT_EQ(caller.Result(), CVPIN_FAILED);
    }
}

TEST(ErrorStrings, MappedCodesLoadTheirTextOthersKeepThePrevious) {
    HMODULE resources = LoadLibraryExW(L"Resources\\cv.corvana.gui.pinrc.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(resources, nullptr);
    auto resourceText = [&](UINT id) {
        wchar_t text[4096] = {};
        LoadStringW(resources, id, text, 4096);
        return std::wstring(text);
    };
    EXPECT_EQ(std::wstring(GetErrorString(11)), resourceText(3071));
    EXPECT_EQ(std::wstring(GetErrorString(12)), resourceText(3069));
    EXPECT_FALSE(resourceText(3069).empty());
    for (int unmapped : {13, 0, -5, 15, 22, 24}) EXPECT_EQ(std::wstring(GetErrorString(unmapped)), resourceText(3069));
    EXPECT_EQ(std::wstring(GetErrorString(23)), resourceText(3172));
    FreeLibrary(resources);
}

namespace {
// A small 24-bit bitmap file made for the test.
std::wstring WriteBitmapFile(int width, int height) {
    wchar_t folder[MAX_PATH], path[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    GetTempFileNameW(folder, L"bnr", 0, path);
    int stride = (width * 3 + 3) & ~3;
    BITMAPFILEHEADER file = {0x4D42};
    BITMAPINFOHEADER info = {sizeof(info), width, height, 1, 24, BI_RGB};
    file.bfOffBits = sizeof(file) + sizeof(info);
    file.bfSize = file.bfOffBits + stride * height;
    std::string pixels(static_cast<size_t>(stride) * height, '\x60');
    HANDLE h = CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written;
    WriteFile(h, &file, sizeof(file), &written, nullptr);
    WriteFile(h, &info, sizeof(info), &written, nullptr);
    WriteFile(h, pixels.data(), static_cast<DWORD>(pixels.size()), &written, nullptr);
    CloseHandle(h);
    return path;
}

RECT ClientRectOf(HWND dialog) {
    RECT r = {};
    GetClientRect(dialog, &r);
    return r;
}
}  // namespace

TEST(PinPrompt, BannerFromTheSettingOrNone) {
    RECT plain;
    {
        PinPrompt prompt;
        EXPECT_FALSE(IsItemVisible(prompt.Dialog(), IDC_BANNER_PICTURE));
        plain = ClientRectOf(prompt.Dialog());
    }
    {
        ScopedSetting banner(L"SecurityModuleMW.AuthenticationDialog.BannerHiRes", L"C:\\no\\such\\banner.bmp");
        PinPrompt prompt;
        EXPECT_FALSE(IsItemVisible(prompt.Dialog(), IDC_BANNER_PICTURE));
        EXPECT_EQ(ClientRectOf(prompt.Dialog()).bottom, plain.bottom);
    }
    std::wstring file = WriteBitmapFile(40, 10);
    {
        ScopedSetting banner(L"SecurityModuleMW.AuthenticationDialog.BannerHiRes", file.c_str());
        PinPrompt prompt;
        EXPECT_TRUE(IsItemVisible(prompt.Dialog(), IDC_BANNER_PICTURE));
        // The banner takes the placeholder's band, so the dialog is taller than without it.
        EXPECT_GT(ClientRectOf(prompt.Dialog()).bottom, plain.bottom);
        RECT picture, placeholder;
        GetClientRect(GetDlgItem(prompt.Dialog(), IDC_BANNER_PICTURE), &picture);
        GetClientRect(GetDlgItem(prompt.Dialog(), IDC_BANNER_PLACEHOLDER), &placeholder);
        EXPECT_EQ(picture.right, placeholder.right);
        EXPECT_EQ(picture.bottom, placeholder.bottom);
    }
    DeleteFileW(file.c_str());
}

namespace {
void WINAPI TurnCapsLockOn(void* ticks) {
    BYTE keys[256];
    GetKeyboardState(keys);
    keys[VK_CAPITAL] = 1;  // toggled, not held
    SetKeyboardState(keys);
    static_cast<std::atomic<int>*>(ticks)->fetch_add(1);
}
// The thread's tooltip windows: all of them, or the visible ones only.
int Balloons(DWORD thread, bool visibleOnly = false) {
    struct Count {
        bool visibleOnly;
        int count;
    } c{visibleOnly, 0};
    EnumThreadWindows(
        thread,
        [](HWND hwnd, LPARAM lParam) {
            auto* c = reinterpret_cast<Count*>(lParam);
            wchar_t cls[64] = {};
            GetClassNameW(hwnd, cls, 64);
            if (_wcsicmp(cls, TOOLTIPS_CLASSW) == 0 && (!c->visibleOnly || IsWindowVisible(hwnd))) ++c->count;
            return TRUE;
        },
        reinterpret_cast<LPARAM>(&c));
    return c.count;
}
}  // namespace

TEST(PinPrompt, CapsLockBalloonShowsOnReleaseAndHidesOnTyping) {
    // The callback runs on the dialog's thread, where the key state is read.
    std::atomic<int> ticks{0};
    PinPrompt prompt(4, 8, kReader, TurnCapsLockOn, &ticks, 10);
    DWORD thread = prompt.Call().ThreadId();
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
    std::atomic<int> unused{0};
    TurnCapsLockOn(&unused);
    HWND balloon = CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_NOPREFIX | TTS_BALLOON,
                                   CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, edit, nullptr, nullptr,
                                   nullptr);
    TOOLINFOW tool = {sizeof(tool)};
    tool.uFlags = TTF_TRACK | TTF_IDISHWND;
    tool.hwnd = edit;
    tool.uId = reinterpret_cast<UINT_PTR>(edit);
    tool.lpszText = const_cast<wchar_t*>(
        L"Having Caps Lock on may cause you to enter your password incorrectly.\r\n\r\n"
        L"You should press Caps Lock to turn it off before entering your password.");
    SendMessageW(balloon, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&tool));
    SendMessageW(balloon, TTM_SETTITLEW, TTI_WARNING, reinterpret_cast<LPARAM>(L"Caps Lock is On"));
    SendMessageW(balloon, TTM_TRACKACTIVATE, TRUE, reinterpret_cast<LPARAM>(&tool));
    system->balloon = balloon;
}
}  // namespace

TEST(PinPrompt, SystemCapsLockBalloonSaysPinAndTheEditDrawsNoSecond) {
    SystemBalloon system;
    PinPrompt prompt(4, 8, kReader, ShowSystemBalloon, &system, 10);
    system.edit = prompt.Edit();
    ASSERT_TRUE(WaitUntil([&] { return system.balloon.load() != nullptr; }));
    wchar_t text[1040] = {};
    TOOLINFOW tool = {sizeof(tool)};
    tool.hwnd = prompt.Edit();
    tool.uId = reinterpret_cast<UINT_PTR>(prompt.Edit());
    tool.lpszText = text;
    SendMessageW(system.balloon, TTM_GETTEXTW, 1040, reinterpret_cast<LPARAM>(&tool));
    EXPECT_EQ(std::wstring(text).rfind(L"Having Caps Lock on may cause you to enter your PIN incorrectly.", 0), 0u)
        << std::string(text, text + wcslen(text));
    // Releasing Caps Lock would create the edit's own balloon, were the system's not there.
    SendMessageW(prompt.Edit(), WM_KEYUP, VK_CAPITAL, 0xC0000001);
    EXPECT_EQ(Balloons(prompt.Call().ThreadId()), 1);
}

TEST(PinPrompt, HelpButtonOnlyWithAHelpFile) {
    {
        PinPrompt prompt;
        EXPECT_FALSE(IsItemVisible(prompt.Dialog(), IDC_HELP_BUTTON));
    }
    const wchar_t key[] = L"SOFTWARE\\Lumetra\\Corvana";
    const wchar_t help[] = L"C:\\Program Files\\Corvana\\corvana.chm";
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, L"HelpPath", REG_SZ, help, sizeof(help)), ERROR_SUCCESS);
    {
        PinPrompt prompt;
        EXPECT_TRUE(IsItemVisible(prompt.Dialog(), IDC_HELP_BUTTON));
    }
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, L"HelpPath");
}

TEST(PinPrompt, OwnerIsDisabledMeanwhileAndADeadOneIsNoObstacle) {
    HWND owner = CreateWindowExW(0, L"STATIC", L"owner", WS_OVERLAPPED, 0, 0, 50, 50, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(owner, nullptr);
    for (bool alive : {true, false}) {
        if (!alive) DestroyWindow(owner);  // its handle now names no window
        char* pin = nullptr;
        unsigned length = 0;
        Caller caller([&] { return GetPINFromUser(owner, kReader, 0, 4, 8, &pin, &length, nullptr, nullptr, 0); });
        HWND dlg = WaitForDialog(caller);
        ASSERT_NE(dlg, nullptr);
        EXPECT_TRUE(!alive || !IsWindowEnabled(owner));
        Click(dlg, IDCANCEL);
        ASSERT_TRUE(caller.Wait());
        EXPECT_EQ(!!IsWindowEnabled(owner), alive);
    }
}
