// The PIN change as a caller and a user see it: the window driven by its control ids, and forms
// that a caller embeds in its own window.
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>
#include "cvpingui.h"
#include "cvpingui_change_pin_dlg.h"
#include "driver_win.h"
#include "resource_ids.h"

using namespace drv;

namespace {

const wchar_t kReader[] = L"Simulated Reader 0";
constexpr unsigned kFailed = 0xFFFFFFFFu;
constexpr unsigned kNone = CVPIN_NO_LENGTH_RULE;

struct Options {
    int preventAlpha = 0, allowWeak = 1;
    unsigned minLength = kNone, maxLength = kNone;
    int firstUse = 0, showLastTry = 0;
    bool requireCurrent = true;
    HWND parent = nullptr;
};

// What the caller gets back.
struct Pins {
    wchar_t current[64] = L"untouched";
    wchar_t next[64] = L"untouched";
    unsigned currentLength = 99, nextLength = 99;

    unsigned Ask(const Options& o) {
        return GetChangePINInfoFromUser_s(o.preventAlpha, o.allowWeak, o.minLength, o.maxLength, o.firstUse,
                                          o.showLastTry, next, 64, &nextLength, current, 64, &currentLength, kReader,
                                          o.parent, o.requireCurrent, nullptr, nullptr, 0);
    }
};

// The PIN change window, opened on its own thread; it must appear.
struct ChangeWindow : Pins, Opened {
    explicit ChangeWindow(const Options& o = Options()) : Opened([this, o] { return (int)Ask(o); }) {
        EXPECT_NE(dialog, nullptr) << "the window did not open";
    }
    ~ChangeWindow() {
        if (!Finished()) RemoveCard(kReader);  // ends every PIN change, even one that may not be cancelled
    }
    HWND Field(int id) const { return FindDescendant(dialog, id); }
    void Type(int field, const wchar_t* text) { TypeText(Field(field), text); }
    bool OkEnabled() const { return IsItemEnabled(dialog, IDOK); }
    bool Open() { return !Wait(300); }
    unsigned Finish() { return static_cast<unsigned>(Opened::Finish()); }
};

// The pixels of an icon's colour image: the library keeps icons of its own, so a row's icon is
// recognised by what it shows, not by its handle.
std::string IconPixels(HICON icon) {
    ICONINFO info{};
    if (!icon || !GetIconInfo(icon, &info)) return {};
    BITMAP bitmap{};
    GetObjectW(info.hbmColor, sizeof bitmap, &bitmap);
    std::string pixels(static_cast<size_t>(bitmap.bmWidthBytes) * bitmap.bmHeight, '\0');
    GetBitmapBits(info.hbmColor, static_cast<LONG>(pixels.size()), &pixels[0]);
    DeleteObject(info.hbmColor);
    DeleteObject(info.hbmMask);
    return pixels;
}

std::string RuleIconPixels(UINT id) {
    HMODULE resources = LoadLibraryExW(L"Resources\\cv.corvana.gui.pinrc.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    HICON icon = static_cast<HICON>(LoadImageW(resources, MAKEINTRESOURCEW(id), IMAGE_ICON, 16, 16, 0));
    std::string pixels = IconPixels(icon);
    DestroyIcon(icon);
    FreeLibrary(resources);
    return pixels;
}

// What a control shows on the screen once its pending paint is done.
std::vector<COLORREF> DrawnPixels(HWND control) {
    WaitUntil([control] { return !GetUpdateRect(control, nullptr, FALSE); });
    RECT client;
    GetClientRect(control, &client);
    HDC screen = GetDC(control);
    std::vector<COLORREF> pixels;
    for (int y = 0; y < client.bottom; ++y)
        for (int x = 0; x < client.right; ++x) pixels.push_back(GetPixel(screen, x, y));
    ReleaseDC(control, screen);
    return pixels;
}

// Rows: minimum, maximum, weak, same PIN, digits only, confirmation; each '-' hidden, '+' met, 'x'
// unmet, by the icon it has.
std::string Rows(HWND top) {
    static const std::string met = RuleIconPixels(IDI_RULE_MET), unmet = RuleIconPixels(IDI_RULE_UNMET);
    const int ids[][2] = {{IDC_RULE_MIN_TEXT, IDC_RULE_MIN_ICON},     {IDC_RULE_MAX_TEXT, IDC_RULE_MAX_ICON},
                          {IDC_RULE_WEAK_TEXT, IDC_RULE_WEAK_ICON},   {IDC_RULE_SAME_TEXT, IDC_RULE_SAME_ICON},
                          {IDC_RULE_ALPHA_TEXT, IDC_RULE_ALPHA_ICON}, {IDC_RULE_CONFIRM_TEXT, IDC_RULE_CONFIRM_ICON}};
    std::string out;
    std::vector<COLORREF> drawn[6];
    for (int i = 0; i < 6; ++i) {
        HWND text = FindDescendant(top, ids[i][0]), icon = FindDescendant(top, ids[i][1]);
        if (!text || !icon || !IsWindowVisible(text)) {
            out += '-';
            continue;
        }
        const std::string shown = IconPixels(reinterpret_cast<HICON>(SendMessageW(icon, STM_GETICON, 0, 0)));
        EXPECT_TRUE(IsWindowVisible(icon) && !met.empty() && met != unmet && (shown == met || shown == unmet));
        out += shown == met ? '+' : 'x';
        drawn[i] = DrawnPixels(icon);
    }
    // On the screen too, rows with the same outcome look alike and the others do not.
    for (int i = 0; i < 6; ++i) {
        for (int j = i + 1; j < 6; ++j) {
            if (out[i] == '-' || out[j] == '-') continue;
            EXPECT_EQ(drawn[i] == drawn[j], out[i] == out[j]) << "icons of rows " << i << " and " << j;
        }
    }
    return out;
}

Options AllRules() { return {/*digits only*/ 1, /*allow weak*/ 0, 6, 8}; }

}  // namespace

TEST(ChangePinWindow, EveryRowShowsItsRuleAsTheUserTypesInAnyField) {
    ScopedSetting samePin(L"Corvana.ChangePINPolicies.PreventSamePINChange", 1);
    ChangeWindow w(AllRules());
    struct Step {
        int field;
        const wchar_t* text;  // L"\b" takes one character back
        const char* rows;     // min, max, weak, same, digits, confirmation
        bool ok;
    } steps[] = {
        {0, L"", "x+xx++", false},                      // nothing typed: empty is short, weak, equal
        {IDC_CURRENT_PIN_EDIT, L"246813", "x+x+++", false},
        {IDC_NEW_PIN_EDIT, L"12345", "x+x++x", false},
        {IDC_NEW_PIN_EDIT, L"7a9", "++++xx", false},  // 8 characters, a letter
        {IDC_NEW_PIN_EDIT, L"\b\b\b9", "+++++x", false},
        {IDC_CONFIRM_PIN_EDIT, L"123459", "++++++", true},  // typing the confirmation re-runs all
        {IDC_NEW_PIN_EDIT, L"000", "+x+++x", false},
        {IDC_NEW_PIN_EDIT, L"\b\b\b", "++++++", true},
        {IDC_CURRENT_PIN_EDIT, L"\b\b\b\b\b\b123459", "+++x++", false},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(testing::Message() << "after typing into " << s.field);
        for (const wchar_t* c = s.text; *c; ++c) TypeChar(w.Field(s.field), *c == L'\b' ? VK_BACK : *c);
        EXPECT_EQ(Rows(w.dialog), s.rows);
        EXPECT_EQ(w.OkEnabled(), s.ok);
    }
}

TEST(ChangePinWindow, RulesThatAreOffHaveNoRow) {
    ChangeWindow w;  // weak PINs allowed, no lengths, letters allowed, same PIN allowed
    EXPECT_EQ(Rows(w.dialog), "-----+");
    EXPECT_TRUE(IsWindowVisible(w.Field(IDC_RULE_BOX)));
}

TEST(ChangePinWindow, AnEmptyCurrentPinKeepsOkDisabledOnlyWhenItIsAsked) {
    {
        ChangeWindow w;
        w.Type(IDC_NEW_PIN_EDIT, L"5555");
        w.Type(IDC_CONFIRM_PIN_EDIT, L"5555");
        EXPECT_FALSE(w.OkEnabled());
        w.Type(IDC_CURRENT_PIN_EDIT, L"1");
        EXPECT_TRUE(w.OkEnabled());
    }
    Options noCurrent;
    noCurrent.requireCurrent = false;
    ChangeWindow w(noCurrent);
    EXPECT_FALSE(IsWindowVisible(w.Field(IDC_CURRENT_PIN_EDIT)));
    wchar_t instruction[256] = {};
    GetWindowTextW(w.Field(IDC_CHANGE_INSTRUCTION), instruction, 256);
    EXPECT_STREQ(instruction, L"Choose a new PIN that meets the rules below.");
    EXPECT_TRUE(w.OkEnabled());  // two empty fields agree, and no other rule is on
    Click(w.dialog, IDOK);
    EXPECT_EQ(w.Finish(), 0u);
    EXPECT_STREQ(w.current, L"");
}

TEST(ChangePinWindow, EnterWithOkDisabledKeepsTheWindowOkReturnsBothPins) {
    ChangeWindow w(AllRules());
    w.Type(IDC_NEW_PIN_EDIT, L"918273");
    PressKey(w.dialog, VK_RETURN);
    EXPECT_TRUE(w.Open());
    w.Type(IDC_CURRENT_PIN_EDIT, L"246813");
    w.Type(IDC_CONFIRM_PIN_EDIT, L"918273");
    PressKey(w.dialog, VK_RETURN);
    EXPECT_EQ(w.Finish(), 0u);
    EXPECT_STREQ(w.current, L"246813");
    EXPECT_STREQ(w.next, L"918273");
    EXPECT_EQ(w.currentLength, 6u);
    EXPECT_EQ(w.nextLength, 6u);
}

// The setting alone does not prevent cancelling: only together with a first use. A removed card
// ends every PIN change.
TEST(ChangePinWindow, OnlyAFirstUseChangeThatCannotBeCancelledStaysOnCancelAndLockButNotOnRemoval) {
    ScopedSetting disable(L"Corvana.ChangePINPolicies.DisableCancelChangePINatFirstUse", 1);
    for (int firstUse : {0, 1}) {
        SCOPED_TRACE(firstUse);
        Options o;
        o.firstUse = firstUse;
        ChangeWindow w(o);
        EXPECT_EQ(IsItemEnabled(w.dialog, IDCANCEL), firstUse == 0);
        if (firstUse) {
            PressKey(w.dialog, VK_ESCAPE);
            SendMessageW(w.dialog, WM_SYSCOMMAND, SC_CLOSE, 0);  // the close box
            SendMessageW(w.dialog, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
        }
        SessionEvent(CVPIN_SESSION_LOCKING);
        EXPECT_EQ(w.Open(), firstUse == 1);
        RemoveCard(kReader);
        EXPECT_EQ(w.Finish(), kFailed);
    }
}

TEST(ChangePinWindow, OpensOnALockedSession) {
    LockedSession locked;
    ChangeWindow w;  // opens
}

TEST(ChangePinCall, InvalidArgumentsFailWithoutAWindow) {
    wchar_t a[8], b[8];
    unsigned la = 0, lb = 0;
    for (int bad = 0; bad < 6; ++bad)  // each pointer null and each size 0 in turn
        EXPECT_EQ(GetChangePINInfoFromUser_s(0, 1, kNone, kNone, 0, 0, bad == 0 ? nullptr : a, bad == 1 ? 0 : 8,
                                             bad == 2 ? nullptr : &la, bad == 3 ? nullptr : b, bad == 4 ? 0 : 8,
                                             bad == 5 ? nullptr : &lb, kReader, nullptr, 1, nullptr, nullptr, 0),
                  kFailed)
            << bad;
    EXPECT_EQ(GetChangePINInfoFromUser(0, 1, kNone, kNone, 0, 0, nullptr, &la, b, &lb, nullptr, nullptr, 1, nullptr,
                                       nullptr, 0),
              kFailed);
}

namespace {
// A window of the caller's with PIN change forms in it.
struct HostWindow {
    HWND hwnd = CreateWindowExW(WS_EX_CONTROLPARENT, L"STATIC", L"host", WS_POPUP, 0, 0, 400, 400, nullptr, nullptr,
                                nullptr, nullptr);
    std::vector<std::unique_ptr<CChangePINDialog>> forms;

    ~HostWindow() {
        forms.clear();
        DestroyWindow(hwnd);
    }
    void AddForm(const wchar_t* newPin, const wchar_t* confirm) {
        PwdRuleArgs rules{0, 0, 0, 4, 8, 0};
        forms.push_back(std::make_unique<CChangePINDialog>(0, 0, false, nullptr, &rules, nullptr, hwnd, 15, 0, 6,
                                                           nullptr, nullptr, 0));
        EXPECT_NE(forms.back()->LocCreate(hwnd), 0);
        TypeText(GetDlgItem(forms.back()->GetSafeHwnd(), IDC_NEW_PIN_EDIT), newPin);
        TypeText(GetDlgItem(forms.back()->GetSafeHwnd(), IDC_CONFIRM_PIN_EDIT), confirm);
    }
    // What a caller passes to take the PINs from its forms.
    Options Embedded(int showLastTry = 0) const {
        Options o;
        o.showLastTry = showLastTry;
        o.parent = hwnd;
        o.requireCurrent = false;
        return o;
    }
};
}  // namespace

TEST(EmbeddedChangePinForm, ThePinsComeFromTheFormAppendedLastIfItMeetsTheRules) {
    HostWindow host;
    host.AddForm(L"135792", L"135792");
    host.AddForm(L"864213", L"864213");
    Pins pins;
    EXPECT_EQ(pins.Ask(host.Embedded()), 0u);  // returns at once: nothing is shown
    EXPECT_STREQ(pins.next, L"864213");
    EXPECT_STREQ(pins.current, L"");

    host.forms.pop_back();  // a destroyed form is no longer found
    EXPECT_EQ(pins.Ask(host.Embedded()), 0u);
    EXPECT_STREQ(pins.next, L"135792");

    host.AddForm(L"135792", L"135790");  // a form breaking a rule fails, without showing anything
    Pins untouched;
    EXPECT_EQ(untouched.Ask(host.Embedded()), kFailed);
    EXPECT_STREQ(untouched.next, L"untouched");
}

TEST(EmbeddedChangePinForm, TheLastTryWarningComesFirst) {
    HostWindow host;
    host.AddForm(L"135792", L"135792");  // a form that would succeed
    ChangeWindow w(host.Embedded(/*last try*/ 1));  // the warning
    Click(w.dialog, IDCANCEL);
    EXPECT_EQ(w.Finish(), kFailed);
    EXPECT_STREQ(w.next, L"untouched");
}
