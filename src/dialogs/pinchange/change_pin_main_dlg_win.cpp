#include "dialogs/pinchange/change_pin_main_dlg_win.h"
#include "framework/resource_icons_win.h"
#include "resource_ids.h"
#include "services/log.h"

namespace {
// The rule list's layout inside the PIN change form.
constexpr int kTopMargin = 15, kLeftShift = 0, kRowSpacing = 6;
}  // namespace

CChangePINDialogMain::CChangePINDialogMain(const PwdRuleArgs* rules, int, bool requireCurrentPin, HWND parent, int,
                                           int, int, const wchar_t* readerName, TimerCallback callback,
                                           void* context, int periodMs)
    : CSecureDialog(IDD_CHANGE_PIN, parent),
      m_rules(rules ? *rules : PwdRuleArgs{0, 0, 0, CVPIN_NO_LENGTH_RULE, CVPIN_NO_LENGTH_RULE, 0}),
      bRequireCurrentPIN(requireCurrentPin),
      m_callback(callback),
      m_callbackContext(context),
      m_periodMs(periodMs),
      m_readerName(readerName) {
    LogScope log(L"CChangePINDialogMain::CChangePINDialogMain");
    m_lockWatcher = std::make_unique<CVDelegateSubscriberWorkstationLocked>(this);
}

CChangePINDialogMain::~CChangePINDialogMain() {
    GUILOG(CVLOG_ENTRY, L"CChangePINDialogMain::~CChangePINDialogMain");
    m_lockWatcher.reset();
    m_pChangePINDlg.reset();
    m_cardWatcher.reset();
}

CSecStr CChangePINDialogMain::GetCurrentPin() const { return m_pChangePINDlg ? m_pChangePINDlg->m_strPin : CSecStr(); }

CSecStr CChangePINDialogMain::GetNewPin() const { return m_pChangePINDlg ? m_pChangePINDlg->m_strNewPin : CSecStr(); }

BOOL CChangePINDialogMain::OnInitDialog() {
    LogScope log(L"CChangePINDialogMain::OnInitDialog");
    OnInitDialogSecure();
    GUILOG(CVLOG_INFO, L"Loading icon...");
    fw::SetSmallIcon(m_hWnd, IDI_CHANGE_PIN);
    m_okButton = Item(IDOK);
    if (m_rules.bDisableCancel) EnableItem(IDCANCEL, false);

    const RECT placeholder = ItemRect(IDC_FORM_PLACEHOLDER);
    m_pChangePINDlg = std::make_unique<CChangePINDialog::Impl>(0, 0, bRequireCurrentPIN, &placeholder, &m_rules,
                                                               m_okButton, m_hWnd, kTopMargin, kLeftShift, kRowSpacing,
                                                               m_callback, m_callbackContext, m_periodMs);
    if (m_pChangePINDlg->LocCreate(m_hWnd)) {
        HWND form = m_pChangePINDlg->GetSafeHwnd();
        ShowWindow(form, SW_SHOW);
        UpdateWindow(form);
        ResizeDlg(0, placeholder.bottom - fw::ChildRect(m_hWnd, form).bottom);
        SetFocus(form);
    }
    std::wstring title = fw::LoadResString(IDS_CHANGE_PIN_TITLE);
    if (!title.empty()) SetWindowTextW(m_hWnd, title.c_str());
    RedrawWindow(m_hWnd, nullptr, nullptr, RDW_INVALIDATE);
    m_cardWatcher = std::make_unique<CVDelegateSubscriberCardRemoved>(this, CardRemovedMessage(), m_readerName.GetString());
    return FALSE;  // the form has set the focus
}

void CChangePINDialogMain::ResizeDlg(int, int dy) {
    for (int id : {IDCANCEL, IDOK}) {
        HWND button = Item(id);
        if (!button) continue;
        RECT r;
        GetWindowRect(button, &r);
        MapWindowPoints(nullptr, m_hWnd, reinterpret_cast<POINT*>(&r), 2);
        SetWindowPos(button, nullptr, r.left, r.top - dy, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
        RedrawWindow(button, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_UPDATENOW);
    }
    RECT frame;
    GetWindowRect(m_hWnd, &frame);
    SetWindowPos(m_hWnd, nullptr, 0, 0, frame.right - frame.left, frame.bottom - frame.top - dy,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    RedrawWindow(m_hWnd, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE);
}

void CChangePINDialogMain::OnOK() {
    // Enter reaches here even when OK is disabled: the rules decide, not the key.
    if (m_okButton && !IsWindowEnabled(m_okButton)) return;
    EndDialog(IDOK);
}

void CChangePINDialogMain::OnCancel() {
    // Escape and the close box come here too: a change that may not be cancelled stays open.
    HWND cancel = Item(IDCANCEL);
    if (m_rules.bDisableCancel || (cancel && !IsWindowEnabled(cancel))) return;
    EndDialog(IDCANCEL);
}

void CChangePINDialogMain::OnDestroy() {
    LogScope log(L"CChangePINDialogMain::OnDestroy");
    m_cardWatcher.reset();
}

void CChangePINDialogMain::OnMove(int, int) {
    if (m_pChangePINDlg) m_pChangePINDlg->ResetToolTip();
}

bool CChangePINDialogMain::OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) {
    if (message == CardRemovedMessage()) {
        GUILOG(CVLOG_INFO, L"CChangePINDialogMain: card removed");
        // A removed card ends even a change that may not be cancelled.
        m_rules.bDisableCancel = 0;
        EndDialog(IDCANCEL);
        result = 0;
        return true;
    }
    return CSecureDialog::OnMessage(message, wParam, lParam, result);
}
