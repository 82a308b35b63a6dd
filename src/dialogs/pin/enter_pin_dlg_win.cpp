#include "dialogs/pin/enter_pin_dlg_win.h"
#include "dialogs/pin/pin_length_policy.h"
#include "resource_ids.h"
#include "services/log.h"
#include "services/settings.h"

CEnterPinDlg::CEnterPinDlg(HWND parent, const wchar_t* readerName, const wchar_t* prompt, unsigned minPinLength,
                           unsigned maxPinLength, TimerCallback callback, void* context, unsigned periodMs)
    : CPromptDlg(L"CEnterPinDlg", IDD_ENTER_PIN, IDI_CARD, parent, readerName),
      m_prompt(prompt ? prompt : L""),
      m_minPinLength(minPinLength),
      m_maxPinLength(maxPinLength),
      m_callback(callback),
      m_callbackContext(context),
      m_periodMs(periodMs) {}

CEnterPinDlg::~CEnterPinDlg() { m_pinValue.Empty(); }

CSecStr CEnterPinDlg::GetPinValue() const {
    GUILOG(CVLOG_ENTRY, L"CEnterPinDlg::GetPinValue");
    return m_pinValue;
}

void CEnterPinDlg::DoDataExchange(fw::DataExchange& dx) {
    BindControl(dx, IDC_PIN_EDIT, m_pinEdit);
    DDX_Text(dx, IDC_PIN_EDIT, m_pinValue);
}

BOOL CEnterPinDlg::OnInitDialog() {
    LogScope log(L"CEnterPinDlg::OnInitDialog");
    CPromptDlg::OnInitDialog();
    // The resource text is only a fallback for an empty custom prompt, and the step runs only
    // for a non-empty one, so the template's own text stays unless a caller set a prompt.
    if (!m_prompt.IsEmpty()) {
        std::wstring fallback = fw::LoadResString(IDS_ENTER_PIN_PROMPT, L"Please enter your PIN.");
        SetItemText(IDC_PIN_PROMPT, m_prompt.IsEmpty() ? fallback.c_str() : m_prompt.GetString());
    }
    TryToInsertBitmap();
    BringToFront();
    OnEnChangeEditPassword();
    if (m_callback && m_periodMs != 0) SetTimer(m_hWnd, 1, m_periodMs, nullptr);
    return TRUE;
}

bool CEnterPinDlg::OnCommand(WORD id, WORD code, HWND control) {
    if (id == IDC_PIN_EDIT && code == EN_CHANGE) {
        OnEnChangeEditPassword();
        return true;
    }
    return CPromptDlg::OnCommand(id, code, control);
}

void CEnterPinDlg::OnOK() {
    // Enter reaches here even when OK is disabled; a PIN the policy refuses is never accepted.
    HWND ok = Item(IDOK);
    if (ok && !IsWindowEnabled(ok)) return;
    CPromptDlg::OnOK();
}

void CEnterPinDlg::OnEnChangeEditPassword() {
    GUILOG(CVLOG_DETAIL, L"CEnterPinDlg::OnEnChangeEditPassword:BEG");
    UpdateData(true);
    bool preventSmall = IsSettingOn(L"Corvana.PINPolicies.PreventSmallPINEntry");
    GUILOG(CVLOG_DETAIL, L"CEnterPinDlg::OnEnChangeEditPassword: bPreventSmallPINEntry = 0x%x", preventSmall);
    bool enableLarge = IsSettingOn(L"Corvana.PINPolicies.EnableLargePINEntry");
    GUILOG(CVLOG_DETAIL, L"CEnterPinDlg::OnEnChangeEditPassword: bEnableLargePINEntry = 0x%x", enableLarge);
    bool accepted = IsPinLengthAccepted(static_cast<unsigned>(m_pinValue.GetLength()), m_minPinLength,
                                        m_maxPinLength, preventSmall, enableLarge);
    EnableItem(IDOK, accepted);
    GUILOG(CVLOG_DETAIL, L"CEnterPinDlg::OnEnChangeEditPassword:END");
}

void CEnterPinDlg::OnTimer(UINT_PTR) {
    GUILOG(CVLOG_ENTRY, L"CEnterPinDlg::OnTimer");
    if (m_callback) m_callback(m_callbackContext);
}

void CEnterPinDlg::OnMove(int, int) {
    // A balloon left at the old place would point at nothing.
    m_pinEdit.ResetToolTip();
}
