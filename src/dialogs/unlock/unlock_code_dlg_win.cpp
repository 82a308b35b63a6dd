#include "dialogs/unlock/unlock_code_dlg_win.h"

#include "dialogs/unlock/unlock_window_win.h"
#include "framework/edit_wipe_win.h"
#include "framework/resource_icons_win.h"
#include "resource_ids.h"
#include "services/log.h"

CDisplayUCChild::CDisplayUCChild(int mode, const RECT* position, const CSecStr& code, HWND parent)
    : CBaseDialog::Impl(IDD_UNLOCK_CODE_CHILD, mode, position, parent), m_code(code) {}

CDisplayUCChild::~CDisplayUCChild() {
    DestroyUnhooked();
    m_code.Empty();
}

int CDisplayUCChild::LocCreate(HWND parent) {
    LogScope log(L"CDisplayUCChild::LocCreate");
    return CreateChild(parent) ? 1 : 0;
}

void CDisplayUCChild::DoDataExchange(fw::DataExchange& dx) {
    DDX_Text(dx, IDC_UC_CODE, m_code);
}

void CDisplayUCChild::OnDestroy() {
    // The field showed the code: its buffers are overwritten before they are freed.
    fw::WipeEditText(Item(IDC_UC_CODE));
}

int CDisplayUCChild::IsNeverDisplayChecked() {
    HWND box = Item(IDC_UC_NEVER_DISPLAY);
    return !box || SendMessageW(box, BM_GETCHECK, 0, 0) == BST_CHECKED;
}

CDisplayUnlockCodeDlg::CDisplayUnlockCodeDlg(HWND parent, const wchar_t* code, const wchar_t* readerName,
                                             int mode)
    : CVDetectCardRemovedDlg(IDD_UNLOCK_CODE, parent, readerName), m_code(code), m_mode(mode) {}

CDisplayUnlockCodeDlg::~CDisplayUnlockCodeDlg() {
    m_pDisplayUCChild.reset();
    m_code.Empty();
}

BOOL CDisplayUnlockCodeDlg::OnInitDialog() {
    LogScope log(L"CDisplayUnlockCodeDlg::OnInitDialog");
    CVDetectCardRemovedDlg::OnInitDialog();
    if (!fw::ResourceModule()) GUILOG(CVLOG_ERROR, L"g_hResInstance is NULL");
    fw::SetSmallIcon(m_hWnd, IDI_UNLOCK);
    if (m_hWndParent) SetPropW(m_hWndParent, kWindowProperty, m_hWnd);

    const RECT place = ItemRect(IDC_UC_PLACEHOLDER);
    m_pDisplayUCChild = std::make_unique<CDisplayUCChild>(m_mode, &place, m_code, m_hWnd);
    m_code.Empty(); // the child holds it from here
    if (!m_pDisplayUCChild) {
        GUILOG(CVLOG_ERROR, L"m_pDisplayUCChild NULL");
    } else if (!m_pDisplayUCChild->LocCreate(m_hWnd)) {
        GUILOG(CVLOG_ERROR, L"LocCreate Failed");
    } else {
        ShowWindow(m_pDisplayUCChild->GetSafeHwnd(), SW_SHOW);
    }
    unlock::BringToTop(m_hWnd);
    SetFocus(Item(IDOK));
    return FALSE;
}

void CDisplayUnlockCodeDlg::OnOK() {
    // OK only closes the window; a ticked box is what makes the caller remove the code.
    const bool never =
        !m_pDisplayUCChild || !m_pDisplayUCChild->GetSafeHwnd() || m_pDisplayUCChild->IsNeverDisplayChecked();
    EndDialog(never ? IDOK : IDCANCEL);
}

void CDisplayUnlockCodeDlg::OnDestroy() {
    LogScope log(L"CDisplayUnlockCodeDlg::OnDestroy");
    if (m_hWndParent) RemovePropW(m_hWndParent, kWindowProperty);
    if (m_pDisplayUCChild) {
        if (HWND child = m_pDisplayUCChild->GetSafeHwnd()) DestroyWindow(child);
    }
    CVDetectCardRemovedDlg::OnDestroy();
}
