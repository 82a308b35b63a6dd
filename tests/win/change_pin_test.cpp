// The PIN change as a caller and a user see it: the window driven by its control ids, and forms
// that a caller embeds in its own window.
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include "cvpingui.h"
#include "cvpingui_change_pin_dlg.h"
#include "driver_win.h"
#include "resource_ids.h"

using namespace drv;

namespace {

const wchar_t kReader[] = L"Simulated Reader 0";
constexpr unsigned kFailed = 0xFFFFFFFFu;
constexpr unsigned kNone = CVPIN_NO_LENGTH_RULE;

struct Rules {
    int preventAlpha = 0;
    int allowWeak = 1;
    unsigned minLength = kNone;
    unsigned maxLength = kNone;
};

struct Options {
    Rules rules;
    int firstUse = 0;
    int showLastTry = 0;
    bool requireCurrent = true;
    HWND parent = nullptr;
};

// What the caller gets back.
struct Pins {
    wchar_t current[64] = L"untouched";
    wchar_t next[64] = L"untouched";
    unsigned currentLength = 99, nextLength = 99;

    unsigned Ask(const Options& o, unsigned capacity = 64) {
        return GetChangePINInfoFromUser_s(o.rules.preventAlpha, o.rules.allowWeak, o.rules.minLength,
                                          o.rules.maxLength, o.firstUse, o.showLastTry, next, capacity, &nextLength,
                                          current, capacity, &currentLength, kReader, o.parent, o.requireCurrent,
                                          nullptr, nullptr, 0);
    }
};

// The PIN change window, opened on its own thread; it must appear.
class ChangeWindow {
public:
    explicit ChangeWindow(const Options& o = Options(), unsigned capacity = 64)
        : m_caller([this, o, capacity] { return (int)m_pins.Ask(o, capacity); }) {
        m_dialog = WaitForDialog(m_caller);
        EXPECT_NE(m_dialog, nullptr) << "the window did not open";
    }
    ~ChangeWindow() {
        // A removed card ends every PIN change, even one that may not be cancelled.
        if (!m_caller.Finished()) RemoveCard(kReader);
        m_caller.Wait();
    }
    HWND Dialog() const { return m_dialog; }
    HWND Field(int id) const { return FindDescendant(m_dialog, id); }
    void Type(int field, const wchar_t* text) { TypeText(Field(field), text); }
    bool OkEnabled() const { return IsItemEnabled(m_dialog, IDOK); }
    bool Open() { return !m_caller.Wait(300); }
    unsigned Finish() {
        EXPECT_TRUE(m_caller.Wait());
        return static_cast<unsigned>(m_caller.Result());
    }
    const Pins& Result() const { return m_pins; }

private:
    Pins m_pins;
    HWND m_dialog = nullptr;
    Caller m_caller;
};

enum class Row { Hidden, Met, Unmet };

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
std::string DrawnPixels(HWND control) {
    WaitUntil([control] { return !GetUpdateRect(control, nullptr, FALSE); });
    RECT client;
    GetClientRect(control, &client);
    BITMAPINFO format{};
    format.bmiHeader = {sizeof(BITMAPINFOHEADER), client.right, -client.bottom, 1, 32, BI_RGB};
    void* bits = nullptr;
    HDC screen = GetDC(control);
    HDC memory = CreateCompatibleDC(screen);
    HBITMAP copy = CreateDIBSection(memory, &format, DIB_RGB_COLORS, &bits, nullptr, 0);
    std::string pixels;
    if (copy) {
        HGDIOBJ previous = SelectObject(memory, copy);
        BitBlt(memory, 0, 0, client.right, client.bottom, screen, 0, 0, SRCCOPY);
        GdiFlush();
        pixels.assign(static_cast<const char*>(bits), static_cast<size_t>(client.right) * client.bottom * 4);
        SelectObject(memory, previous);
        DeleteObject(copy);
    }
    DeleteDC(memory);
    ReleaseDC(control, screen);
    return pixels;
}

Row RowState(HWND top, int textId, int iconId) {
    HWND text = FindDescendant(top, textId);
    HWND icon = FindDescendant(top, iconId);
    if (!text || !icon || !IsWindowVisible(text)) return Row::Hidden;
    static const std::string met = RuleIconPixels(IDI_RULE_MET);
    static const std::string unmet = RuleIconPixels(IDI_RULE_UNMET);
    const std::string shown = IconPixels(reinterpret_cast<HICON>(SendMessageW(icon, STM_GETICON, 0, 0)));
    EXPECT_TRUE(IsWindowVisible(icon));
    EXPECT_TRUE(!met.empty() && met != unmet && (shown == met || shown == unmet));
    return shown == met ? Row::Met : Row::Unmet;
}

// Rows: minimum, maximum, weak, same PIN, digits only, confirmation.
std::string Rows(HWND top) {
    const int ids[][2] = {{IDC_RULE_MIN_TEXT, IDC_RULE_MIN_ICON},     {IDC_RULE_MAX_TEXT, IDC_RULE_MAX_ICON},
                          {IDC_RULE_WEAK_TEXT, IDC_RULE_WEAK_ICON},   {IDC_RULE_SAME_TEXT, IDC_RULE_SAME_ICON},
                          {IDC_RULE_ALPHA_TEXT, IDC_RULE_ALPHA_ICON}, {IDC_RULE_CONFIRM_TEXT, IDC_RULE_CONFIRM_ICON}};
    std::string out, drawn[6];
    for (int i = 0; i < 6; ++i) {
        Row r = RowState(top, ids[i][0], ids[i][1]);
        out += r == Row::Hidden ? '-' : r == Row::Met ? '+' : 'x';
        if (r != Row::Hidden) drawn[i] = DrawnPixels(FindDescendant(top, ids[i][1]));
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

Options AllRules() {
    Options o;
    o.rules = {1, 0, 6, 8};
    return o;
}

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
        for (const wchar_t* c = s.text; *c; ++c) *c == L'\b' ? Backspace(w.Field(s.field)) : TypeChar(w.Field(s.field), *c);
        EXPECT_EQ(Rows(w.Dialog()), s.rows);
        EXPECT_EQ(w.OkEnabled(), s.ok);
    }
}

TEST(ChangePinWindow, RulesThatAreOffHaveNoRow) {
    ChangeWindow w;  // weak PINs allowed, no lengths, letters allowed, same PIN allowed
    EXPECT_EQ(Rows(w.Dialog()), "-----+");
    EXPECT_TRUE(IsWindowVisible(w.Field(IDC_RULE_BOX)));
}

TEST(ChangePinWindow, OkReturnsBothPins) {
    ChangeWindow w(AllRules());
    w.Type(IDC_CURRENT_PIN_EDIT, L"246813");
    w.Type(IDC_NEW_PIN_EDIT, L"918273");
    w.Type(IDC_CONFIRM_PIN_EDIT, L"918273");
    Click(w.Dialog(), IDOK);
    EXPECT_EQ(w.Finish(), 0u);
    EXPECT_STREQ(w.Result().current, L"246813");
    EXPECT_STREQ(w.Result().next, L"918273");
    EXPECT_EQ(w.Result().currentLength, 6u);
    EXPECT_EQ(w.Result().nextLength, 6u);
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
    Click(w.Dialog(), IDOK);
    EXPECT_EQ(w.Finish(), 0u);
    EXPECT_STREQ(w.Result().current, L"");
}

TEST(ChangePinWindow, EnterWithOkDisabledKeepsTheWindow) {
    ChangeWindow w(AllRules());
    w.Type(IDC_NEW_PIN_EDIT, L"918273");
    PressKey(w.Dialog(), VK_RETURN);
    EXPECT_TRUE(w.Open());
    w.Type(IDC_CURRENT_PIN_EDIT, L"1");
    w.Type(IDC_CONFIRM_PIN_EDIT, L"918273");
    PressKey(w.Dialog(), VK_RETURN);
    EXPECT_EQ(w.Finish(), 0u);
}

TEST(ChangePinWindow, FirstUseChangeCannotBeCancelledButEndsWhenTheCardIsRemoved) {
    ScopedSetting disable(L"Corvana.ChangePINPolicies.DisableCancelChangePINatFirstUse", 1);
    Options firstUse;
    firstUse.firstUse = 1;
    ChangeWindow w(firstUse);
    EXPECT_FALSE(IsItemEnabled(w.Dialog(), IDCANCEL));
    PressKey(w.Dialog(), VK_ESCAPE);
    SendMessageW(w.Dialog(), WM_SYSCOMMAND, SC_CLOSE, 0);  // the close box
    SendMessageW(w.Dialog(), WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
    EXPECT_TRUE(w.Open());
    RemoveCard(kReader);
    EXPECT_EQ(w.Finish(), kFailed);
}

// The setting alone does not prevent cancelling: only together with a first use.
TEST(ChangePinWindow, CancelAndSessionLockCloseTheWindowUnlessItIsAFirstUseChangeThatCannotBeCancelled) {
    ScopedSetting disable(L"Corvana.ChangePINPolicies.DisableCancelChangePINatFirstUse", 1);
    for (int firstUse : {0, 1}) {
        Options o;
        o.firstUse = firstUse;
        ChangeWindow w(o);
        EXPECT_EQ(IsItemEnabled(w.Dialog(), IDCANCEL), firstUse == 0);
        SessionEvent(CVPIN_SESSION_LOCKING);
        EXPECT_EQ(w.Open(), firstUse == 1) << "first use " << firstUse;
    }
}

TEST(ChangePinWindow, OpensOnALockedSession) {
    LockedSession locked;
    ChangeWindow w;  // opens
}

TEST(ChangePinWindow, APinTooLongForTheCallersBufferFails) {
    ChangeWindow w(Options(), 4);
    w.Type(IDC_CURRENT_PIN_EDIT, L"12345");
    Click(w.Dialog(), IDOK);
    EXPECT_EQ(w.Finish(), kFailed);
    EXPECT_EQ(w.Result().current[0], L'\0');
    EXPECT_EQ(w.Result().currentLength, 0u);
}

TEST(ChangePinCall, InvalidArgumentsFailWithoutAWindow) {
    wchar_t a[8], b[8];
    unsigned la = 0, lb = 0;
    struct Case {
        wchar_t* next;
        unsigned nextSize;
        unsigned* nextLength;
        wchar_t* current;
        unsigned currentSize;
        unsigned* currentLength;
    } cases[] = {
        {nullptr, 8, &la, b, 8, &lb}, {a, 0, &la, b, 8, &lb}, {a, 8, nullptr, b, 8, &lb},
        {a, 8, &la, nullptr, 8, &lb}, {a, 8, &la, b, 0, &lb}, {a, 8, &la, b, 8, nullptr},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(GetChangePINInfoFromUser_s(0, 1, kNone, kNone, 0, 0, c.next, c.nextSize, c.nextLength, c.current,
                                             c.currentSize, c.currentLength, kReader, nullptr, 1, nullptr, nullptr, 0),
                  kFailed);
    }
    EXPECT_EQ(GetChangePINInfoFromUser(0, 1, kNone, kNone, 0, 0, nullptr, &la, b, &lb, nullptr, nullptr, 1, nullptr,
                                       nullptr, 0),
              kFailed);
}

namespace {
// A window of the caller's with PIN change forms in it.
class HostWindow {
public:
    HostWindow() {
        WNDCLASSW wc = {};
        wc.lpfnWndProc = DefWindowProcW;
        wc.hInstance = GetModuleHandleW(nullptr);
        wc.lpszClassName = L"ChangePinTestHost";
        RegisterClassW(&wc);  // fails harmlessly when registered by an earlier test
        m_hwnd = CreateWindowExW(WS_EX_CONTROLPARENT, wc.lpszClassName, L"host", WS_POPUP, 0, 0, 400, 400, nullptr,
                                 nullptr, wc.hInstance, nullptr);
    }
    ~HostWindow() {
        m_forms.clear();
        DestroyWindow(m_hwnd);
    }
    CChangePINDialog* AddForm(const wchar_t* newPin, const wchar_t* confirm) {
        PwdRuleArgs rules{0, 0, 0, 4, 8, 0};
        auto form = std::make_unique<CChangePINDialog>(0, 0, false, nullptr, &rules, nullptr, m_hwnd, 15, 0, 6,
                                                       nullptr, nullptr, 0);
        EXPECT_NE(form->LocCreate(m_hwnd), 0);
        TypeText(GetDlgItem(form->GetSafeHwnd(), IDC_NEW_PIN_EDIT), newPin);
        TypeText(GetDlgItem(form->GetSafeHwnd(), IDC_CONFIRM_PIN_EDIT), confirm);
        m_forms.push_back(std::move(form));
        return m_forms.back().get();
    }
    void RemoveLastForm() { m_forms.pop_back(); }
    HWND Hwnd() const { return m_hwnd; }

private:
    HWND m_hwnd;
    std::vector<std::unique_ptr<CChangePINDialog>> m_forms;
};

Options EmbeddedIn(const HostWindow& host) {
    Options o;
    o.parent = host.Hwnd();
    o.requireCurrent = false;
    return o;
}
}  // namespace

TEST(EmbeddedChangePinForm, ThePinsComeFromTheFormAppendedLast) {
    HostWindow host;
    host.AddForm(L"135792", L"135792");
    host.AddForm(L"864213", L"864213");
    Pins pins;
    EXPECT_EQ(pins.Ask(EmbeddedIn(host)), 0u);  // returns at once: nothing is shown
    EXPECT_STREQ(pins.next, L"864213");
    EXPECT_STREQ(pins.current, L"");

    host.RemoveLastForm();  // a destroyed form is no longer found
    EXPECT_EQ(pins.Ask(EmbeddedIn(host)), 0u);
    EXPECT_STREQ(pins.next, L"135792");
}

TEST(EmbeddedChangePinForm, AFormBreakingARuleFailsWithoutShowingAnything) {
    HostWindow host;
    host.AddForm(L"135792", L"135790");
    Pins pins;
    EXPECT_EQ(pins.Ask(EmbeddedIn(host)), kFailed);
    EXPECT_STREQ(pins.next, L"untouched");
}

TEST(EmbeddedChangePinForm, TheLastTryWarningComesFirst) {
    HostWindow host;
    host.AddForm(L"135792", L"135792");  // a form that would succeed
    Options o = EmbeddedIn(host);
    o.showLastTry = 1;
    ChangeWindow w(o);  // the warning
    Click(w.Dialog(), IDCANCEL);
    EXPECT_EQ(w.Finish(), kFailed);
    EXPECT_STREQ(w.Result().next, L"untouched");
}
