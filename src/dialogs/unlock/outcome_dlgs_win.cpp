#include "dialogs/unlock/outcome_dlgs_win.h"

#include "dialogs/base/help_keys_win.h"
#include "dialogs/unlock/unlock_window_win.h"
#include "framework/resource_icons_win.h"
#include "resource_ids.h"
#include "services/help_display_win.h"
#include "services/log.h"
#include "services/settings.h"

CUnlockFailedDlg::CUnlockFailedDlg(HWND parent, const wchar_t* message, int mode)
    : CSecureDialog(IDD_UNLOCK_FAILED, parent), m_message(message), m_mode(mode) {
    m_lockWatcher = std::make_unique<CVDelegateSubscriberWorkstationLocked>(this);
}

BOOL CUnlockFailedDlg::OnInitDialog() {
    LogScope log(L"CUnlockFailedDlg::OnInitDialog");
    OnInitDialogSecure();
    unlock::SetBoldTitle(m_hWnd, IDC_OUTCOME_TITLE, m_titleFont);
    if (m_mode == 1) {
        std::wstring title = fw::LoadResString(IDS_UNLOCK_FAILED_TITLE);
        if (!title.empty()) SetWindowTextW(m_hWnd, title.c_str());
        std::wstring heading = fw::LoadResString(IDS_UNLOCK_FAILED_HEADING);
        if (!heading.empty()) SetItemText(IDC_OUTCOME_TITLE, heading.c_str());
        fw::SetSmallIcon(m_hWnd, IDI_UNLOCK_FAILED);
    } else {
        fw::SetSmallIcon(m_hWnd, IDI_UNLOCK);
    }
    fw::SetItemIcon(m_hWnd, IDC_OUTCOME_ICON, IDI_UNLOCK_FAILED);
    SetItemText(IDC_OUTCOME_MESSAGE, m_message.GetString());
    unlock::BringToTop(m_hWnd);
    return TRUE;
}

bool CUnlockFailedDlg::PreTranslateMessage(const MSG& msg) {
    if (IsHelpKeyRelease(m_hWnd, msg)) OnContextualHelp();
    return false; // the key goes on as usual
}

bool CUnlockFailedDlg::OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) {
    if (IsCaptionHelpClick(message, wParam)) {
        OnContextualHelp();
        result = 0;
        return true;
    }
    return CSecureDialog::OnMessage(message, wParam, lParam, result);
}

void CUnlockFailedDlg::OnContextualHelp() {
    GUILOG(CVLOG_ENTRY, L"CUnlockFailedDlg::OnContextualHelp");
    DoDisplayTopic(HELP_TOPIC_UNLOCK);
}

CUnlockSuccessDlg::CUnlockSuccessDlg(HWND parent) : CSecureDialog(IDD_UNLOCK_SUCCESS, parent) {
    m_lockWatcher = std::make_unique<CVDelegateSubscriberWorkstationLocked>(this);
}

BOOL CUnlockSuccessDlg::OnInitDialog() {
    LogScope log(L"CUnlockSuccessDlg::OnInitDialog");
    OnInitDialogSecure();
    fw::SetSmallIcon(m_hWnd, IDI_UNLOCK);
    unlock::SetBoldTitle(m_hWnd, IDC_OUTCOME_TITLE, m_titleFont);
    unlock::BringToTop(m_hWnd);
    return TRUE;
}

CUnlockInitToolDlg::CUnlockInitToolDlg(HWND parent, const wchar_t* readerName)
    : CVDetectCardRemovedDlg(IDD_UNLOCK_INIT_TOOL, parent, readerName) {
    m_lockWatcher = std::make_unique<CVDelegateSubscriberWorkstationLocked>(this);
}

BOOL CUnlockInitToolDlg::OnInitDialog() {
    LogScope log(L"CUnlockInitToolDlg::OnInitDialog");
    CVDetectCardRemovedDlg::OnInitDialog();
    fw::SetSmallIcon(m_hWnd, IDI_UNLOCK);
    unlock::SetBoldTitle(m_hWnd, IDC_OUTCOME_TITLE, m_titleFont);
    std::wstring message;
    ReadStringSetting(L"Corvana.Notifications.CardLocked.Message", message);
    SetItemText(IDC_OUTCOME_TITLE, message.c_str());
    unlock::BringToTop(m_hWnd);
    return TRUE;
}
