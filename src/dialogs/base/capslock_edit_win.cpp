#include "dialogs/base/capslock_edit_win.h"
#include <commctrl.h>
#include <cwchar>
#include "dialogs/base/balloon_placement.h"
#include "framework/dialog_win.h"
#include "resource_ids.h"
#include "services/registry_win.h"

namespace {

const wchar_t kDefaultTitle[] = L"Caps Lock is On";
const wchar_t kDefaultPinMessage[] =
    L"Having Caps Lock on may cause you to enter your PIN incorrectly.\r\n\r\n"
    L"You should press Caps Lock to turn it off before entering your PIN.";
const wchar_t kDefaultPasswordMessage[] =
    L"Having Caps Lock on may cause you to enter your password incorrectly.\r\n\r\n"
    L"You should press Caps Lock to turn it off before entering your password.";

// The beginning of the body text of the system's own caps-lock balloon, when the resource
// library has none (the balloon's title is a separate text and is not compared).
const wchar_t kDefaultSystemText[] = L"Having Caps Lock on may cause you to enter your password incorrectly.";

void LoadText(wchar_t (&out)[261], UINT id, const wchar_t* fallback) {
    std::wstring text = fw::LoadResString(id, fallback);
    wcsncpy(out, text.c_str(), 260);
    out[260] = 0;
}

void InitCommonControlsFor(DWORD classes) {
    if (nvIsAppContainer()) return;
    INITCOMMONCONTROLSEX icc = {sizeof(icc), classes};
    InitCommonControlsEx(&icc);
}

}  // namespace

// The balloon must believe the mouse is over the edit, wherever the mouse really is, or it
// would hide itself at the first real mouse move.
class CCapsLockSensitiveEdit::Impl::BalloonHook : public fw::Control {
public:
    explicit BalloonHook(HWND edit) : m_edit(edit) {}

protected:
    LRESULT WndProc(UINT message, WPARAM wParam, LPARAM lParam) override {
        if (message == WM_MOUSEMOVE) return 0;
        if (message == TTM_WINDOWFROMPOINT && lParam) {
            RECT r;
            GetWindowRect(m_edit, &r);
            auto* pt = reinterpret_cast<POINT*>(lParam);
            pt->x = r.left + 5;
            pt->y = r.top + 5;
        }
        return DefaultProc(message, wParam, lParam);
    }

private:
    HWND m_edit;
};

CCapsLockSensitiveEdit::Impl::Impl() {
    InitCommonControlsFor(ICC_BAR_CLASSES);
    LoadText(m_title, IDS_CAPS_TITLE, kDefaultTitle);
    LoadText(m_pinMessage, IDS_CAPS_PIN_MESSAGE, kDefaultPinMessage);
    LoadText(m_passwordMessage, IDS_CAPS_PASSWORD_MESSAGE, kDefaultPasswordMessage);
}

CCapsLockSensitiveEdit::Impl::~Impl() {
    if (m_tooltip) DestroyWindow(m_tooltip);
}

void CCapsLockSensitiveEdit::Impl::OnDetached() {
    if (m_tooltip) DestroyWindow(m_tooltip);
    m_tooltip = nullptr;
    m_systemTip = nullptr;
    fw::SecureEdit::OnDetached();
}

void CCapsLockSensitiveEdit::Impl::ResetToolTip() {
    if (m_tooltip) SendMessageW(m_tooltip, TTM_ACTIVATE, FALSE, 0);
}

void CCapsLockSensitiveEdit::Impl::CreateBalloon() {
    InitCommonControlsFor(ICC_WIN95_CLASSES);
    m_tooltip = CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_NOPREFIX | TTS_BALLOON,
                                CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, m_hWnd, nullptr,
                                nullptr, nullptr);
    if (!m_tooltip) return;
    m_balloonHook = std::make_unique<BalloonHook>(m_hWnd);
    m_balloonHook->Attach(m_tooltip);
    SetWindowPos(m_tooltip, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE | SWP_NOACTIVATE);
    TOOLINFOW tool = {sizeof(tool)};
    tool.hwnd = m_hWnd;
    tool.uId = 0;
    GetClientRect(m_hWnd, &tool.rect);
    tool.lpszText = LPSTR_TEXTCALLBACKW;
    SendMessageW(m_tooltip, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&tool));
    SendMessageW(m_tooltip, TTM_SETDELAYTIME, TTDT_INITIAL, 0);
    SendMessageW(m_tooltip, TTM_SETMAXTIPWIDTH, 0, 300);
    SendMessageW(m_tooltip, TTM_SETTITLEW, TTI_WARNING, reinterpret_cast<LPARAM>(m_title));
}

void CCapsLockSensitiveEdit::Impl::CheckCapsLockMessage() {
    if (!m_ownBalloon) return;
    // Positive: toggled on and not held down; the warning waits for the key's release.
    if (m_hasFocus && GetKeyState(VK_CAPITAL) > 0) {
        if (!m_tooltip) CreateBalloon();
        if (!m_tooltip) return;
        SendMessageW(m_tooltip, TTM_ACTIVATE, TRUE, 0);
        MSG relay = {m_hWnd, WM_MOUSEMOVE, 0, MAKELPARAM(5, 5)};
        SendMessageW(m_tooltip, TTM_RELAYEVENT, 0, reinterpret_cast<LPARAM>(&relay));
    } else if (m_tooltip) {
        SendMessageW(m_tooltip, TTM_ACTIVATE, FALSE, 0);
    }
}

bool CCapsLockSensitiveEdit::Impl::OnNotify(NMHDR* header, LRESULT& result) {
    if (header->code == TTN_SHOW) {
        if (m_tooltip && header->hwndFrom == m_tooltip) {
            RECT edit, tip;
            GetWindowRect(m_hWnd, &edit);
            GetWindowRect(m_tooltip, &tip);
            ScreenPoint at = PlaceCapsLockBalloon({edit.left, edit.top, edit.right, edit.bottom}, tip.right - tip.left,
                                                  tip.bottom - tip.top, GetSystemMetrics(SM_CXSCREEN));
            SetWindowPos(m_tooltip, nullptr, at.x, at.y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
            result = 1;
            return true;
        }
        // Any other balloon of this edit is the system's own: comctl32 6 shows one on a password
        // edit while Caps Lock is on. From now on ours is not needed.
        TakeOverSystemBalloon(header->hwndFrom);
        return false;
    }
    if (header->code == TTN_GETDISPINFOW) {
        auto* info = reinterpret_cast<NMTTDISPINFOW*>(header);
        info->lpszText = m_pinMode ? m_pinMessage : m_passwordMessage;
        info->uFlags |= TTF_DI_SETITEM;
        if (m_systemTip) RedrawWindow(m_systemTip, nullptr, nullptr, RDW_INVALIDATE | RDW_ALLCHILDREN);
        return false;
    }
    return false;
}

void CCapsLockSensitiveEdit::Impl::TakeOverSystemBalloon(HWND balloon) {
    if (m_ownBalloon) {
        m_ownBalloon = false;
        ResetToolTip();
    }
    if (balloon == m_systemTip) return;  // handled once per balloon window
    m_systemTip = balloon;
    wchar_t text[1040] = {};
    TOOLINFOW tool = {sizeof(tool)};
    tool.lpszText = text;
    // The edit's balloon has one tool, the one it shows.
    if (!SendMessageW(balloon, TTM_GETCURRENTTOOLW, 0, reinterpret_cast<LPARAM>(&tool)) &&
        !SendMessageW(balloon, TTM_ENUMTOOLSW, 0, reinterpret_cast<LPARAM>(&tool)))
        return;
    // The tool's text is the balloon's body; its title ("Caps Lock is On") is kept apart.
    const std::wstring systemText = fw::LoadResString(IDS_CAPS_SYSTEM_TEXT, kDefaultSystemText);
    if (wcsncmp(text, systemText.c_str(), systemText.size()) != 0) return;
    tool.lpszText = LPSTR_TEXTCALLBACKW;
    SendMessageW(balloon, TTM_SETTOOLINFOW, 0, reinterpret_cast<LPARAM>(&tool));
}

LRESULT CCapsLockSensitiveEdit::Impl::WndProc(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_SETFOCUS: {
        LRESULT r = fw::SecureEdit::WndProc(message, wParam, lParam);
        m_hasFocus = true;
        CheckCapsLockMessage();
        return r;
    }
    case WM_KILLFOCUS: {
        LRESULT r = fw::SecureEdit::WndProc(message, wParam, lParam);
        m_hasFocus = false;
        CheckCapsLockMessage();
        return r;
    }
    case WM_KEYUP:
        if (wParam == VK_CAPITAL) {
            CheckCapsLockMessage();
        } else if (wParam != VK_BACK && wParam != VK_TAB && wParam != VK_SHIFT) {
            ResetToolTip();
        }
        break;
    case WM_NOTIFY: {
        LRESULT result = 0;
        if (lParam && OnNotify(reinterpret_cast<NMHDR*>(lParam), result)) return result;
        break;
    }
    }
    return fw::SecureEdit::WndProc(message, wParam, lParam);
}
