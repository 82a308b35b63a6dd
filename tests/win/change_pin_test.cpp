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
    wchar_t current[64] = L"untouched", next[64] = L"untouched";
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
    bool Open() { return !Wait(300); }
    unsigned Finish() { return static_cast<unsigned>(Opened::Finish()); }
};

// The colour pixels of an icon: the library keeps icons of its own, so a row's icon is recognised
// by what it shows, not by its handle.
std::string IconPixels(HICON icon) {
    ICONINFO info{};
    if (!icon || !GetIconInfo(icon, &info)) return {};
    std::string pixels(1 << 14, '\0');
    pixels.resize(GetBitmapBits(info.hbmColor, static_cast<LONG>(pixels.size()), &pixels[0]));
    DeleteObject(info.hbmColor);
    DeleteObject(info.hbmMask);
    return pixels;
}

std::string RuleIconPixels(UINT id) {
    static HMODULE resources =
        LoadLibraryExW(L"Resources\\cv.corvana.gui.pinrc.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    return IconPixels(static_cast<HICON>(LoadImageW(resources, MAKEINTRESOURCEW(id), IMAGE_ICON, 16, 16, LR_SHARED)));
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
    std::string out = "------";
    std::vector<COLORREF> drawn[6];
    for (int i = 0; i < 6; ++i) {
        HWND text = FindDescendant(top, ids[i][0]), icon = FindDescendant(top, ids[i][1]);
        if (!text || !icon || !IsWindowVisible(text)) continue;
        const std::string shown = IconPixels(reinterpret_cast<HICON>(SendMessageW(icon, STM_GETICON, 0, 0)));
        EXPECT_TRUE(IsWindowVisible(icon) && !met.empty() && met != unmet && (shown == met || shown == unmet));
        out[i] = shown == met ? '+' : 'x';
        drawn[i] = DrawnPixels(icon);
        // On the screen too, rows with the same outcome look alike and the others do not.
        for (int j = 0; j < i; ++j)
            EXPECT_TRUE(out[j] == '-' || (drawn[i] == drawn[j]) == (out[i] == out[j])) << "rows " << j << ", " << i;
    }
    return out;
}

}  // namespace

TEST(ChangePinWindow, EveryRowShowsItsRuleAsTheUserTypesInAnyFieldAndEnterTakesBothPinsOnlyOnceAllAreMet) {
    ScopedSetting samePin(L"Corvana.ChangePINPolicies.PreventSamePINChange", 1);
    ChangeWindow w({/*digits only*/ 1, /*allow weak*/ 0, 6, 8});
    struct Step {
        int field;
        const wchar_t* text;  // L"\b" takes one character back, L"\r" is Enter
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
        {0, L"\r", "+++x++", false},  // Enter with OK disabled keeps the window
        {IDC_CURRENT_PIN_EDIT, L"\b1", "++++++", true},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(testing::Message() << "after typing into " << s.field);
        for (const wchar_t* c = s.text; *c; ++c)
            *c == L'\r' ? PressKey(w.dialog, VK_RETURN) : TypeChar(w.Field(s.field), *c == L'\b' ? VK_BACK : *c);
        EXPECT_EQ(Rows(w.dialog), s.rows);
        EXPECT_EQ(IsItemEnabled(w.dialog, IDOK), s.ok);
        EXPECT_TRUE(*s.text != L'\r' || w.Open());
    }
    PressKey(w.dialog, VK_RETURN);
    EXPECT_EQ(w.Finish(), 0u);
    EXPECT_STREQ(w.current, L"123451");
    EXPECT_STREQ(w.next, L"123459");
    EXPECT_EQ(w.currentLength + w.nextLength, 12u);
}

TEST(ChangePinWindow, RulesThatAreOffHaveNoRowAndItOpensOnALockedSession) {
    LockedSession locked;
    ChangeWindow w;  // weak PINs allowed, no lengths, letters allowed, same PIN allowed
    EXPECT_EQ(Rows(w.dialog), "-----+");
    EXPECT_TRUE(IsWindowVisible(w.Field(IDC_RULE_BOX)));
}

TEST(ChangePinWindow, AnEmptyCurrentPinKeepsOkDisabledOnlyWhenItIsAsked) {
    {
        ChangeWindow w;
        TypeText(w.Field(IDC_NEW_PIN_EDIT), L"5555");
        TypeText(w.Field(IDC_CONFIRM_PIN_EDIT), L"5555");
        EXPECT_FALSE(IsItemEnabled(w.dialog, IDOK));
        TypeText(w.Field(IDC_CURRENT_PIN_EDIT), L"1");
        EXPECT_TRUE(IsItemEnabled(w.dialog, IDOK));
    }
    ChangeWindow w({0, 1, kNone, kNone, 0, 0, /*require the current PIN*/ false});
    EXPECT_FALSE(IsWindowVisible(w.Field(IDC_CURRENT_PIN_EDIT)));
    EXPECT_EQ(ItemText(GetParent(w.Field(IDC_CHANGE_INSTRUCTION)), IDC_CHANGE_INSTRUCTION),
              L"Choose a new PIN that meets the rules below.");
    EXPECT_TRUE(IsItemEnabled(w.dialog, IDOK));  // two empty fields agree, and no other rule is on
    Click(w.dialog, IDOK);
    EXPECT_EQ(w.Finish(), 0u);
    EXPECT_STREQ(w.current, L"");
}

// The setting alone does not prevent cancelling: only together with a first use. A removed card
// ends every PIN change.
TEST(ChangePinWindow, OnlyAFirstUseChangeThatCannotBeCancelledStaysOnCancelAndLockButNotOnRemoval) {
    ScopedSetting disable(L"Corvana.ChangePINPolicies.DisableCancelChangePINatFirstUse", 1);
    for (int firstUse : {0, 1}) {
        SCOPED_TRACE(firstUse);
        ChangeWindow w({0, 1, kNone, kNone, firstUse});
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
    Options Embedded(int showLastTry = 0) const { return {0, 1, kNone, kNone, 0, showLastTry, false, hwnd}; }
};
}  // namespace

TEST(EmbeddedChangePinForm, ThePinsComeFromTheFormAppendedLastIfItMeetsTheRulesAfterAnyLastTryWarning) {
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
    {
        ChangeWindow warning(host.Embedded(/*last try*/ 1));  // first, even with a form that would succeed
        Click(warning.dialog, IDCANCEL);
        EXPECT_EQ(warning.Finish(), kFailed);
        EXPECT_STREQ(warning.next, L"untouched");
    }

    host.AddForm(L"135792", L"135790");  // a form breaking a rule fails, without showing anything
    Pins untouched;
    EXPECT_EQ(untouched.Ask(host.Embedded()), kFailed);
    EXPECT_STREQ(untouched.next, L"untouched");
}
