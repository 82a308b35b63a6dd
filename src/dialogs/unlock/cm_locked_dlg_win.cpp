#include "dialogs/unlock/cm_locked_dlg_win.h"

#include "dialogs/base/help_keys_win.h"
#include "dialogs/unlock/unlock_text.h"
#include "dialogs/unlock/unlock_window_win.h"
#include "resource_ids.h"
#include "services/help_display_win.h"
#include "services/log.h"
#include "services/settings.h"

namespace {
constexpr const wchar_t* kMessageKey = L"Corvana.Notifications.BlockedCardManager.BlockedCardManagerMessage";
constexpr int kDefaultMessageHeight = 64;

} // namespace

CCMLockedDlg::CCMLockedDlg(HWND parent, const wchar_t* readerName)
    : CVDetectCardRemovedDlg(IDD_CM_LOCKED, parent, readerName) {
    std::wstring message;
    ReadStringSetting(kMessageKey, message);
    m_message = message.c_str();
    GUILOG(CVLOG_INFO, L"CCMLockedDlg::CCMLockedDlg : GetSettingValue(%s) returned %s", kMessageKey,
           message.c_str());
}

void CCMLockedDlg::DoDataExchange(fw::DataExchange& dx) {
    DDX_Text(dx, IDC_CM_MESSAGE, m_message);
}

BOOL CCMLockedDlg::OnInitDialog() {
    LogScope log(L"CCMLockedDlg::OnInitDialog");
    CVDetectCardRemovedDlg::OnInitDialog();
    unlock::BringToTop(m_hWnd);
    AdjustWindow();
    return TRUE;
}

void CCMLockedDlg::AdjustWindow() {
    LogScope log(L"CCMLockedDlg::AdjustWindow");
    RECT window, client;
    GetWindowRect(m_hWnd, &window);
    GetClientRect(m_hWnd, &client);
    const int nonClient = (window.bottom - window.top) - client.bottom;

    HWND message = Item(IDC_CM_MESSAGE);
    int height = kDefaultMessageHeight;
    RECT text{};
    if (message) {
        text = fw::ChildRect(m_hWnd, message);
        if (HDC dc = GetDC(message)) {
            HGDIOBJ old = SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(message, WM_GETFONT, 0, 0)));
            SIZE extent{};
            // The terminator is measured too: the text never quite ends at the edge.
            GetTextExtentPoint32W(dc, m_message.GetString(), m_message.GetLength() + 1, &extent);
            SelectObject(dc, old);
            ReleaseDC(message, dc);
            height = unlock::MessageHeight(extent.cx, extent.cy, text.right - text.left);
        }
        SetWindowPos(message, nullptr, text.left, text.top, text.right - text.left, height,
                     SWP_NOZORDER | SWP_NOACTIVATE);
    }
    const int messageBottom = text.top + height;
    int buttonHeight = 0;
    if (HWND ok = Item(IDOK)) {
        const RECT r = fw::ChildRect(m_hWnd, ok);
        buttonHeight = r.bottom - r.top;
        SetWindowPos(ok, nullptr, r.left, messageBottom, r.right - r.left, buttonHeight,
                     SWP_NOZORDER | SWP_NOACTIVATE);
    }
    // As much space under the button as above the message.
    SetWindowPos(m_hWnd, nullptr, 0, 0, window.right - window.left,
                 nonClient + text.top + messageBottom + buttonHeight,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
}

bool CCMLockedDlg::PreTranslateMessage(const MSG& msg) {
    if (IsHelpKeyRelease(m_hWnd, msg)) OnContextualHelp();
    return false;
}

void CCMLockedDlg::OnContextualHelp() {
    GUILOG(CVLOG_ENTRY, L"CCMLockedDlg::OnContextualHelp");
    DoDisplayTopic(HELP_TOPIC_CM_LOCKED);
}
