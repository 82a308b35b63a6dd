#include "dialogs/unlock/reset_card_dlg_win.h"

#include "dialogs/unlock/unlock_text.h"
#include "dialogs/unlock/unlock_window_win.h"
#include "framework/resource_icons_win.h"
#include "resource_ids.h"
#include "services/log.h"

namespace {
constexpr int kChallengeControls[] = {IDC_RC_CHALLENGE_LABEL, IDC_RC_CHALLENGE,      IDC_RC_RESPONSE_LABEL,
                                      IDC_RC_RESPONSE_EDIT,   IDC_RC_CHALLENGE_NOTE, IDC_RC_RESPONSE_NOTE};
constexpr UINT_PTR kTimerId = 1;
} // namespace

CResetCardDialog::Impl::Impl(int mode, const RECT* position, HWND okButton, HWND parent)
    : CBaseDialog::Impl(IDD_RESET_CARD_FORM, mode, position, parent), m_okButton(okButton) {}

CResetCardDialog::Impl::~Impl() {
    DestroyUnhooked();
}

int CResetCardDialog::Impl::LocCreate(HWND parent) {
    LogScope log(L"CResetCardDialog::LocCreate");
    return CreateChild(parent) ? 1 : 0;
}

void CResetCardDialog::Impl::DoDataExchange(fw::DataExchange& dx) {
    BindControl(dx, IDC_RC_RESPONSE_EDIT, m_responseEdit);
    BindControl(dx, IDC_RC_PIN_EDIT, m_pinEdit);
    BindControl(dx, IDC_RC_STATIC_CODE_EDIT, m_staticCodeEdit);
}

BOOL CResetCardDialog::Impl::OnInitDialog() {
    GUILOG(CVLOG_ENTRY, L"CResetCardDialog::OnInitDialog");
    CBaseDialog::Impl::OnInitDialog();
    m_pinEdit.Clear();
    m_responseEdit.Clear();
    SetFocus(m_staticCodeEdit.Hwnd());
    CheckDlgButton(m_hWnd, IDC_RC_RADIO_PIN, BST_CHECKED);
    bPinMode = true;
    // The exit line carries the PIN change form's name: the log readers know it by that name.
    GUILOG(CVLOG_EXIT, L"CChangePINDialog::OnInitDialog");
    return FALSE;
}

CCapsLockSensitiveEdit::Impl& CResetCardDialog::Impl::ActiveField() {
    if (bPinMode) return m_pinEdit;
    return bChallengeMode ? m_responseEdit : m_staticCodeEdit;
}

CSecStr CResetCardDialog::Impl::GetPin() const {
    return const_cast<Impl*>(this)->ActiveField().Text();
}

void CResetCardDialog::Impl::SetChallenge(CSecStr challenge) {
    LogScope log(L"CResetCardDialog::SetChallenge");
    CheckWindow(true);
    CheckDlgButton(m_hWnd, IDC_RC_RADIO_PIN, BST_CHECKED);
    EnableItem(IDC_RC_RADIO_PIN, true);
    CheckDlgButton(m_hWnd, IDC_RC_RADIO_CODE, BST_UNCHECKED);
    EnableItem(IDC_RC_RADIO_CODE, true);
    bChallengeMode = !challenge.IsEmpty();
    if (bChallengeMode) SetItemText(IDC_RC_CHALLENGE, unlock::FirstFourGroups(challenge).GetString());
    ShowItem(IDC_RC_STATIC_CODE_EDIT, !bChallengeMode);
    for (int id : kChallengeControls)
        ShowItem(id, bChallengeMode);
    // Applied once the mode is known, so that only the chosen way's controls are enabled.
    OnRadioClicked();
    challenge.Empty();
}

void CResetCardDialog::Impl::EnableCodeControls(bool enable) {
    if (bChallengeMode) {
        for (int id : kChallengeControls)
            EnableItem(id, enable);
    } else {
        EnableItem(IDC_RC_STATIC_CODE_EDIT, enable);
    }
}

void CResetCardDialog::Impl::OnRadioClicked() {
    if (IsDlgButtonChecked(m_hWnd, IDC_RC_RADIO_PIN) == BST_CHECKED) {
        EnableCodeControls(false);
        EnableItem(IDC_RC_PIN_EDIT, true);
        SetFocus(m_pinEdit.Hwnd());
        bPinMode = true;
    } else {
        EnableCodeControls(true);
        SetFocus(bChallengeMode ? m_responseEdit.Hwnd() : m_staticCodeEdit.Hwnd());
        EnableItem(IDC_RC_PIN_EDIT, false);
        bPinMode = false;
    }
    OnCheckOkButton();
}

void CResetCardDialog::Impl::OnCheckOkButton() {
    if (!m_okButton) return;
    EnableWindow(m_okButton, !ActiveField().Text().IsEmpty());
}

void CResetCardDialog::Impl::CheckWindow(bool clear) {
    CCapsLockSensitiveEdit::Impl& active = ActiveField();
    for (CCapsLockSensitiveEdit::Impl* field : {&m_pinEdit, &m_responseEdit, &m_staticCodeEdit})
        if (field != &active || clear) field->Clear();
    SetFocus(active.Hwnd());
    OnCheckOkButton();
    RedrawWindow(m_hWnd, nullptr, nullptr, RDW_INVALIDATE);
}

void CResetCardDialog::Impl::DisablePIN() {
    LogScope log(L"CResetCardDialog::DisablePIN");
    m_pinEdit.Clear();
    EnableItem(IDC_RC_PIN_EDIT, false);
    CheckDlgButton(m_hWnd, IDC_RC_RADIO_PIN, BST_UNCHECKED);
    EnableItem(IDC_RC_RADIO_PIN, false);
    CheckDlgButton(m_hWnd, IDC_RC_RADIO_CODE, BST_CHECKED);
    EnableItem(IDC_RC_RADIO_CODE, true);
    bPinMode = false;
    OnRadioClicked();
}

bool CResetCardDialog::Impl::OnCommand(WORD id, WORD code, HWND control) {
    if ((id == IDC_RC_RADIO_PIN || id == IDC_RC_RADIO_CODE) && code == BN_CLICKED) {
        OnRadioClicked();
        return true;
    }
    if (code == EN_CHANGE &&
        (id == IDC_RC_PIN_EDIT || id == IDC_RC_RESPONSE_EDIT || id == IDC_RC_STATIC_CODE_EDIT)) {
        OnCheckOkButton();
        return true;
    }
    return CBaseDialog::Impl::OnCommand(id, code, control);
}

void CResetCardDialog::Impl::StartTimer(TimerCallback callback, void* context, int periodMs) {
    m_callback = callback;
    m_callbackContext = context;
    m_periodMs = periodMs;
    if (m_callback && m_periodMs != 0 && m_hWnd)
        SetTimer(m_hWnd, kTimerId, static_cast<UINT>(m_periodMs), nullptr);
}

void CResetCardDialog::Impl::StopTimer() {
    if (m_callback && m_periodMs != 0 && m_hWnd) KillTimer(m_hWnd, kTimerId);
}

void CResetCardDialog::Impl::OnTimer(UINT_PTR) {
    if (m_callback) m_callback(m_callbackContext);
}

void CResetCardDialog::Impl::ResetToolTip() {
    for (CCapsLockSensitiveEdit::Impl* field : {&m_pinEdit, &m_responseEdit, &m_staticCodeEdit})
        field->ResetToolTip();
}

CResetCardDialogMain::Impl::Impl(int mode, HWND parent, int, int, int, const wchar_t* readerName,
                                 TimerCallback callback, void* context, int periodMs)
    : CSecureDialog(IDD_RESET_CARD, parent), m_mode(mode), m_callback(callback), m_callbackContext(context),
      m_periodMs(periodMs), m_readerName(readerName) {}

CResetCardDialogMain::Impl::~Impl() {
    m_form.reset();
    m_cardWatcher.reset();
    m_value.Empty();
    m_challenge.Empty();
}

void CResetCardDialogMain::Impl::SetChallenge(const wchar_t* challenge) {
    m_challenge = challenge;
    m_hasChallenge = true;
    if (m_form && m_form->GetSafeHwnd()) m_form->SetChallenge(m_challenge);
}

void CResetCardDialogMain::Impl::DisablePIN() {
    m_pinDisabled = true;
    if (m_form && m_form->GetSafeHwnd()) m_form->DisablePIN();
}

CSecStr CResetCardDialogMain::Impl::GetPin() const {
    return m_form && m_form->GetSafeHwnd() ? m_form->GetPin() : m_value;
}

void CResetCardDialogMain::Impl::StopDetectingRemoveEvent() {
    m_cardWatcher.reset();
}

BOOL CResetCardDialogMain::Impl::OnInitDialog() {
    LogScope log(L"CResetCardDialogMain::OnInitDialog");
    OnInitDialogSecure();
    GUILOG(CVLOG_INFO, L"Loading icon...");
    fw::SetSmallIcon(m_hWnd, IDI_CHANGE_PIN);
    m_okButton = Item(IDOK);

    const RECT place = ItemRect(IDC_RC_FORM_PLACEHOLDER);
    m_form = std::make_unique<CResetCardDialog::Impl>(m_mode, &place, m_okButton, m_hWnd);
    if (m_form->LocCreate(m_hWnd)) {
        HWND form = m_form->GetSafeHwnd();
        ShowWindow(form, SW_SHOW);
        ResizeDlg(0, place.bottom - fw::ChildRect(m_hWnd, form).bottom);
        if (m_hasChallenge)
            m_form->SetChallenge(m_challenge);
        else
            m_form->OnRadioClicked();
        m_challenge.Empty();
        if (m_pinDisabled) m_form->DisablePIN();
        m_form->StartTimer(m_callback, m_callbackContext, m_periodMs);
    }
    std::wstring title = fw::LoadResString(IDS_CHANGE_PIN_TITLE);
    if (!title.empty()) SetWindowTextW(m_hWnd, title.c_str());
    m_cardWatcher = std::make_unique<CVDelegateSubscriberCardRemoved>(this, CardRemovedMessage(),
                                                                      m_readerName.GetString());
    SetForegroundWindow(m_hWnd);
    return FALSE; // the form has set the focus
}

void CResetCardDialogMain::Impl::ResizeDlg(int dx, int dy) {
    for (int id : {IDCANCEL, IDOK}) {
        unlock::MoveItem(m_hWnd, id, -dx, -dy);
        if (HWND button = Item(id)) RedrawWindow(button, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW);
    }
    RECT r;
    GetWindowRect(m_hWnd, &r);
    SetWindowPos(m_hWnd, nullptr, 0, 0, r.right - r.left - dx, r.bottom - r.top - dy,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
}

void CResetCardDialogMain::Impl::OnOK() {
    if (m_okButton && !IsWindowEnabled(m_okButton)) return;
    // The form's fields wipe themselves with the window: the value is kept for the caller.
    if (m_form) m_value = m_form->GetPin();
    EndDialog(IDOK);
}

void CResetCardDialogMain::Impl::OnDestroy() {
    LogScope log(L"CResetCardDialogMain::OnDestroy");
    if (m_form) m_form->StopTimer();
    m_cardWatcher.reset();
}

void CResetCardDialogMain::Impl::OnMove(int, int) {
    if (m_form) m_form->ResetToolTip();
}

bool CResetCardDialogMain::Impl::OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) {
    if (message == CardRemovedMessage()) {
        GUILOG(CVLOG_INFO, L"CResetCardDialogMain::OnCardEvent");
        EndDialog(IDCANCEL);
        result = 0;
        return true;
    }
    return CSecureDialog::OnMessage(message, wParam, lParam, result);
}
