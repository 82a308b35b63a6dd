#include "dialogs/pinchange/change_pin_dlg_win.h"
#include <list>
#include "resource_ids.h"
#include "services/log.h"
#include "services/settings.h"

namespace {
// Every live form of the process, oldest first. Touched only by user-interface threads, one at
// a time, like the forms themselves.
std::list<CChangePINDialog::Impl*>& LiveForms() {
    static std::list<CChangePINDialog::Impl*> forms;
    return forms;
}
}  // namespace

CChangePINDialog::Impl* FindEmbeddedChangePinForm(HWND parent) {
    CChangePINDialog::Impl* found = nullptr;
    for (CChangePINDialog::Impl* form : LiveForms()) {
        HWND hwnd = form->GetSafeHwnd();
        if (hwnd && GetParent(hwnd) == parent) found = form;
    }
    return found;
}

CChangePINDialog::Impl::Impl(int, int mode, bool requireCurrentPin, const RECT* position, const PwdRuleArgs* rules,
                             HWND okButton, HWND parent, int topMargin, int leftShift, int rowSpacing,
                             TimerCallback callback, void* context, int periodMs)
    : CBaseDialog::Impl(IDD_CHANGE_PIN_FORM, mode, position, parent),
      m_okButton(okButton),
      m_bPreventSmallPINEntry(IsSettingOn(L"Corvana.PINPolicies.PreventSmallPINEntry")),
      nTopMargin(topMargin),
      nLeftShift(leftShift),
      nRowSpacing(rowSpacing),
      bRequireCurrentPIN(requireCurrentPin),
      m_callback(callback),
      m_callbackContext(context),
      m_periodMs(periodMs) {
    LogScope log(L"CChangePINDialog::CChangePINDialog");
    if (rules) {
        m_rules = *rules;
        m_hasRules = true;
    }
    LiveForms().push_back(this);
}

CChangePINDialog::Impl::~Impl() {
    GUILOG(CVLOG_ENTRY, L"CChangePINDialog::~CChangePINDialog");
    // An embedding window may delete the form while it is still shown.
    DestroyUnhooked();
    DestroyPolicies();
    auto& forms = LiveForms();
    for (auto it = forms.begin(); it != forms.end(); ++it) {
        if (*it == this) {
            forms.erase(it);
            break;
        }
    }
    EraseAllPinBuffers();
}

int CChangePINDialog::Impl::LocCreate(HWND parent) {
    LogScope log(L"CChangePINDialog::LocCreate");
    return CreateChild(parent) ? 1 : 0;
}

void CChangePINDialog::Impl::DoDataExchange(fw::DataExchange& dx) {
    BindControl(dx, IDC_CURRENT_PIN_EDIT, m_currentEdit);
    BindControl(dx, IDC_NEW_PIN_EDIT, m_newEdit);
    BindControl(dx, IDC_CONFIRM_PIN_EDIT, m_confirmEdit);
}

BOOL CChangePINDialog::Impl::OnInitDialog() {
    LogScope log(L"CChangePINDialog::OnInitDialog");
    CBaseDialog::Impl::OnInitDialog();
    const struct {
        int control;
        UINT text;
    } texts[] = {{IDC_CHANGE_INSTRUCTION, IDS_CHANGE_INSTRUCTION},
                 {IDC_CURRENT_PIN_LABEL, IDS_CURRENT_PIN_LABEL},
                 {IDC_NEW_PIN_LABEL, IDS_NEW_PIN_LABEL},
                 {IDC_CONFIRM_PIN_LABEL, IDS_CONFIRM_PIN_LABEL}};
    for (const auto& t : texts) {
        std::wstring text = fw::LoadResString(t.text);
        if (!text.empty()) SetItemText(t.control, text.c_str());
    }
    if (!bRequireCurrentPIN) {
        ShowItem(IDC_CURRENT_PIN_LABEL, false);
        ShowItem(IDC_CURRENT_PIN_EDIT, false);
        std::wstring text = fw::LoadResString(IDS_CHANGE_INSTRUCTION_NEW_ONLY);
        if (!text.empty()) SetItemText(IDC_CHANGE_INSTRUCTION, text.c_str());
    }

    const RECT placeholder = ItemRect(IDC_RULES_PLACEHOLDER);
    m_pPoliciesDlg = std::make_unique<CVPoliciesDlg::Impl>(m_hasRules ? &m_rules : nullptr, m_colored, &placeholder,
                                                           m_hWnd, nTopMargin, nLeftShift, nRowSpacing);
    if (m_pPoliciesDlg->LocCreate(m_hWnd)) {
        ShowWindow(m_pPoliciesDlg->GetSafeHwnd(), SW_SHOW);
        UpdateWindow(m_pPoliciesDlg->GetSafeHwnd());
        // The form ends where the rule list ends, however many rows it shows.
        ResizeDlg(0, 0, placeholder.bottom - fw::ChildRect(m_hWnd, m_pPoliciesDlg->GetSafeHwnd()).bottom);
    }

    SetForegroundWindow(GetAncestor(m_hWnd, GA_ROOT));
    SetFocus(Item(bRequireCurrentPIN ? IDC_CURRENT_PIN_EDIT : IDC_NEW_PIN_EDIT));
    RedrawWindow(m_hWnd, nullptr, nullptr, RDW_INVALIDATE | RDW_ALLCHILDREN);
    if (m_callback && m_periodMs != 0) SetTimer(m_hWnd, 1, static_cast<UINT>(m_periodMs), nullptr);
    return FALSE;  // the focus is set
}

bool CChangePINDialog::Impl::OnCommand(WORD id, WORD code, HWND control) {
    // The fields empty themselves as they are destroyed; the PINs read after the window is gone
    // are the ones the user typed.
    if (m_destroying && (code == EN_CHANGE || code == EN_SETFOCUS)) return true;
    if (code == EN_CHANGE || code == EN_SETFOCUS) {
        // Entering a field refreshes the rule list as a change does.
        switch (id) {
        case IDC_CURRENT_PIN_EDIT: OnEnChangeEditPin(); return true;
        case IDC_NEW_PIN_EDIT: OnEnChangeEditPinNew(); return true;
        case IDC_CONFIRM_PIN_EDIT: OnEnChangeEditPinConfirm(); return true;
        }
    }
    return CBaseDialog::Impl::OnCommand(id, code, control);
}

void CChangePINDialog::Impl::OnEnChangeEditPin() {
    m_strPin = m_currentEdit.Text();
    OnEnChangeEditPinNew();
}

void CChangePINDialog::Impl::OnEnChangeEditPinConfirm() {
    m_strConfirmPin = m_confirmEdit.Text();
    OnEnChangeEditPinNew();
}

void CChangePINDialog::Impl::OnEnChangeEditPinNew() {
    m_strNewPin = m_newEdit.Text();
    VerifyAndUpdateAllPolicies(m_strNewPin);
}

bool CChangePINDialog::Impl::VerifyAndUpdateAllPolicies(CSecStr newPin) {
    LogScope log(L"CChangePINDialog::VerifyAndUpdateAllPolicies");
    // The fields' own texts are read in place: no copy of a PIN is made per keystroke.
    const CSecStr& current = m_currentEdit.Text();
    GUILOG(CVLOG_DETAIL, L"m_pPoliciesDlg: %d", m_pPoliciesDlg ? 1 : 0);
    bool rulesMet = true;
    if (m_pPoliciesDlg)
        rulesMet = m_pPoliciesDlg->VerifyAndUpdatePoliciesInPlace(current, newPin, m_newEdit.Text(),
                                                                  m_confirmEdit.Text());
    const bool acceptable = pinrules::IsChangeAcceptable(rulesMet, bRequireCurrentPIN, current.IsEmpty());
    // Only a change: re-disabling a disabled button still costs a message round.
    if (m_okButton && (IsWindowEnabled(m_okButton) != FALSE) != acceptable) EnableWindow(m_okButton, acceptable);
    newPin.Empty();
    return rulesMet;
}

void CChangePINDialog::Impl::EraseAllPinBuffers() {
    m_strPin.Empty();
    m_strNewPin.Empty();
    m_strConfirmPin.Empty();
}

void CChangePINDialog::Impl::ResetToolTip() {
    for (CCapsLockSensitiveEdit::Impl* edit : {&m_currentEdit, &m_newEdit, &m_confirmEdit}) edit->ResetToolTip();
}

void CChangePINDialog::Impl::OnTimer(UINT_PTR) {
    if (m_callback) m_callback(m_callbackContext);
}

void CChangePINDialog::Impl::OnMove(int, int) { ResetToolTip(); }

void CChangePINDialog::Impl::OnDestroy() {
    LogScope log(L"CChangePINDialog::OnDestroy");
    m_destroying = true;
    DestroyPolicies();
}

void CChangePINDialog::Impl::DestroyPolicies() {
    if (!m_pPoliciesDlg) return;
    if (HWND list = m_pPoliciesDlg->GetSafeHwnd()) DestroyWindow(list);
    m_pPoliciesDlg.reset();
}
