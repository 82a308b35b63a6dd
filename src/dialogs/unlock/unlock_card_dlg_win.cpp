#include "dialogs/unlock/unlock_card_dlg_win.h"

#include "dialogs/base/help_keys_win.h"
#include "dialogs/unlock/outcome_dlgs_win.h"
#include "dialogs/unlock/unlock_text.h"
#include "dialogs/unlock/unlock_window_win.h"
#include "dialogs/base/error_text_win.h"
#include "framework/edit_wipe_win.h"
#include "framework/resource_icons_win.h"
#include "resource_ids.h"
#include "services/agent_notify_win.h"
#include "services/help_display_win.h"
#include "services/log.h"
#include "services/msgbox_win.h"
#include "services/settings.h"

namespace {

// Posted to itself at the end of the initialisation: the rule list is built once the dialog's
// own layout is final.
constexpr UINT kDisplayPolicies = WM_USER;
// The rule list's layout inside the unlock dialog.
constexpr int kTopMargin = 10, kLeftShift = 3, kRowSpacing = 6;
// The height of the challenge part at 96 DPI.
constexpr int kChallengePartHeight = 100;

} // namespace

CUnlockCardDlg::CUnlockCardDlg(HWND parent, const PwdRuleArgs* rules, void* context, UnlockCallback unlock,
                               ChallengeCallback getChallenge, const wchar_t* readerName, TimerCallback timer,
                               void* timerContext, int periodMs)
    : CSecureDialog(IDD_UNLOCK, parent), pContext(context), m_readerName(readerName),
      bPreventAlphaPIN(rules ? rules->bPreventAlphaPIN : 0), bAllowWeakPIN(rules ? rules->bAllowWeakPIN : 1),
      dwMinPINLen(rules ? rules->dwMinPINLen : CVPIN_NO_LENGTH_RULE),
      dwMaxPINLen(rules ? rules->dwMaxPINLen : CVPIN_NO_LENGTH_RULE), m_unlock(unlock),
      m_getChallenge(getChallenge), m_timer(timer), m_timerContext(timerContext), m_periodMs(periodMs) {
    LogScope log(L"CUnlockCardDlg::CUnlockCardDlg");
    m_lockWatcher = std::make_unique<CVDelegateSubscriberWorkstationLocked>(this);
}

CUnlockCardDlg::~CUnlockCardDlg() {
    GUILOG(CVLOG_ENTRY, L"CUnlockCardDlg::~CUnlockCardDlg");
    // The fields wipe themselves as the window goes; none of their notifications may reach a
    // half-destroyed object.
    DestroyUnhooked();
    m_cardWatcher.reset();
    m_lockWatcher.reset();
    GUILOG(CVLOG_DETAIL, L"Here 1 : m_pStaticPolicies = 0x%x", m_pStaticPolicies ? 1u : 0u);
    m_pStaticPolicies.reset();
    GUILOG(CVLOG_DETAIL, L"m_pStaticPolicies = NULL");
    m_readerName.Empty();
}

void CUnlockCardDlg::DoDataExchange(fw::DataExchange& dx) {
    BindControl(dx, IDC_UL_NEW_PIN_EDIT, m_newPinEdit);
    BindControl(dx, IDC_UL_CONFIRM_EDIT, m_confirmEdit);
}

BOOL CUnlockCardDlg::OnInitDialog() {
    LogScope log(L"CUnlockCardDlg::OnInitDialog");
    OnInitDialogSecure();
    fw::SetSmallIcon(m_hWnd, IDI_UNLOCK);
    unlock::SetBoldTitle(m_hWnd, IDC_UL_TITLE, m_titleFont);

    CVData tel;
    int notFound = 0;
    GetSettingValue(L"Corvana.Notifications.ContactTel", tel, &notFound);
    const std::wstring number = notFound ? L"" : tel.AsString();
    GUILOG(CVLOG_INFO, L"CUnlockCardDlg::OnInitDialog: GetSettingValue(%s, ...) returned %s",
           L"Corvana.Notifications.ContactTel", notFound ? L"(not set)" : number.c_str());
    if (notFound) {
        SetItemText(IDC_UL_INSTRUCTION, fw::LoadResString(IDS_HELPDESK_CALL).c_str());
    } else {
        CSecStr text;
        text.Format(fw::LoadResString(IDS_HELPDESK_CALL_TEL, L"%s").c_str(), number.c_str());
        SetItemText(IDC_UL_INSTRUCTION, text.GetString());
    }

    m_challengeMode = ShowNewChallenge();
    if (m_challengeMode) {
        GUILOG(CVLOG_INFO, L"Unlock challenge response");
    } else {
        GUILOG(CVLOG_INFO, L"Unlock static");
        UseStaticCodeLayout();
    }

    m_cardWatcher = std::make_unique<CVDelegateSubscriberCardRemoved>(this, CardRemovedMessage(),
                                                                      m_readerName.GetString());
    for (int id : {IDC_UL_NEW_PIN_EDIT, IDC_UL_CONFIRM_EDIT})
        SendDlgItemMessageW(m_hWnd, id, EM_SETPASSWORDCHAR, L'*', 0);
    if (m_timer && m_periodMs != 0) SetTimer(m_hWnd, 1, static_cast<UINT>(m_periodMs), nullptr);

    PostMessageW(m_hWnd, kDisplayPolicies, 0, 0);
    SetForegroundWindow(m_hWnd);
    SetFocus(Item(IDC_UL_RESPONSE_EDIT)); // the user types the help desk's code first
    return FALSE;
}

bool CUnlockCardDlg::ShowNewChallenge() {
    CSecStr challenge;
    if (!m_getChallenge || m_getChallenge(pContext, challenge) != 0) return false;
    SetItemText(IDC_UL_CHALLENGE, unlock::GroupByFour(challenge).GetString());
    return true;
}

void CUnlockCardDlg::UseStaticCodeLayout() {
    for (int id : {IDC_UL_CHALLENGE_LABEL, IDC_UL_INSTRUCTION, IDC_UL_CHALLENGE_NOTE, IDC_UL_CHALLENGE})
        ShowItem(id, false);
    // The part's height was laid out for 96 DPI; it scales with the screen.
    HDC dc = GetDC(m_hWnd);
    const int shift = MulDiv(kChallengePartHeight, dc ? GetDeviceCaps(dc, LOGPIXELSY) : 96, 96);
    if (dc) ReleaseDC(m_hWnd, dc);
    for (int id : {IDC_UL_RESPONSE_LABEL, IDC_UL_RESPONSE_HINT, IDC_UL_NEW_PIN_LABEL, IDC_UL_RESPONSE_EDIT,
                   IDC_UL_RULES_WIDTH, IDC_UL_CONFIRM_LABEL, IDC_UL_RULES_NOTE, IDC_UL_SEPARATOR,
                   IDC_UL_NEW_PIN_EDIT, IDC_UL_CONFIRM_EDIT, IDC_UL_RULES_PLACEHOLDER, IDOK, IDCANCEL})
        unlock::MoveItem(m_hWnd, id, 0, -shift);
    RECT r;
    GetWindowRect(m_hWnd, &r);
    GUILOG(CVLOG_DETAIL, L"WindowRect (left=%d,top=%d,right=%d,bottom=%d)", (int)r.left, (int)r.top,
           (int)r.right, (int)r.bottom);
    if (SetWindowPos(m_hWnd, nullptr, 0, 0, r.right - r.left, r.bottom - r.top - shift,
                     SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE))
        GUILOG(CVLOG_DETAIL, L"SetWindowPos succeeded");
    else
        GUILOG(CVLOG_ERROR, L"SetWindowPos failed (GetLastError=%ld)", (long)GetLastError());
}

void CUnlockCardDlg::OnDisplayPINPolicies() {
    LogScope log(L"CUnlockCardDlg::OnDisplayPINPolicies");
    if (!m_pStaticPolicies) {
        GUILOG(CVLOG_DETAIL, L"m_pStaticPolicies == NULL");
        GUILOG(CVLOG_DETAIL, L"new m_pStaticPolicies");
        const RECT place = ItemRect(IDC_UL_RULES_PLACEHOLDER);
        const PwdRuleArgs rules{bPreventAlphaPIN, bAllowWeakPIN, 0, dwMinPINLen, dwMaxPINLen, 0};
        auto list = std::make_unique<CVPoliciesDlg::Impl>(&rules, 0, &place, m_hWnd, kTopMargin, kLeftShift,
                                                          kRowSpacing);
        if (list->LocCreate(m_hWnd)) {
            HWND listWnd = list->GetSafeHwnd();
            const RECT widthOf = ItemRect(IDC_UL_RULES_WIDTH);
            RECT r;
            GetWindowRect(listWnd, &r);
            const int width = widthOf.right - widthOf.left, height = r.bottom - r.top;
            SetWindowPos(listWnd, HWND_TOP, 0, 0, width, height, SWP_NOMOVE | SWP_NOACTIVATE);
            if (HWND box = GetDlgItem(listWnd, IDC_RULE_BOX))
                SetWindowPos(box, nullptr, 0, 0, width, height, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
            if (height > 0) {
                unlock::GrowWindow(m_hWnd, height);
                unlock::MoveItem(m_hWnd, IDOK, 0, height);
                unlock::MoveItem(m_hWnd, IDCANCEL, 0, height);
            }
            m_pStaticPolicies = std::move(list);
        }
    }
    if (m_pStaticPolicies) {
        m_pStaticPolicies->VerifyAndUpdatePolicies(CSecStr(), CSecStr(), CSecStr(), CSecStr());
        ShowWindow(m_pStaticPolicies->GetSafeHwnd(), SW_SHOW);
    }
    OnChangeEdit();
}

CSecStr CUnlockCardDlg::Response() {
    CSecStr code;
    fw::DataExchange dx{this, true};
    fw::DDX_Text(dx, IDC_UL_RESPONSE_EDIT, code);
    return code;
}

bool CUnlockCardDlg::OnCommand(WORD id, WORD code, HWND control) {
    if (code == EN_CHANGE &&
        (id == IDC_UL_CONFIRM_EDIT || id == IDC_UL_NEW_PIN_EDIT || id == IDC_UL_RESPONSE_EDIT)) {
        if (!m_destroying) OnChangeEdit();
        return true;
    }
    if (id == IDC_UL_RULES_WIDTH) return true; // a static that may notify: nothing to do
    return CSecureDialog::OnCommand(id, code, control);
}

void CUnlockCardDlg::OnChangeEdit() {
    bool acceptable = false;
    if (m_pStaticPolicies) {
        const CSecStr none;
        const bool rulesMet = m_pStaticPolicies->VerifyAndUpdatePoliciesInPlace(
            none, m_newPinEdit.Text(), m_newPinEdit.Text(), m_confirmEdit.Text());
        acceptable = rulesMet && unlock::IsResponseWellFormed(Response());
    }
    HWND ok = Item(IDOK);
    if (ok && (IsWindowEnabled(ok) != FALSE) != acceptable) EnableWindow(ok, acceptable);
}

void CUnlockCardDlg::OnOK() {
    LogScope log(L"CUnlockCardDlg::OnOK");
    // Enter reaches here even when OK is disabled: the rules decide, not the key.
    HWND ok = Item(IDOK);
    if (ok && !IsWindowEnabled(ok)) return;
    if (m_newPinEdit.Text() != m_confirmEdit.Text()) {
        CVErrMesDisplayEx(m_hWnd, fw::LoadResString(IDS_NEW_PIN_MISMATCH).c_str(),
                          MB_OK | MB_ICONINFORMATION);
        return;
    }
    const int result =
        m_unlock ? m_unlock(pContext, unlock::WithoutDashes(Response()), m_newPinEdit.Text()) : -1;
    switch (unlock::OutcomeOf(static_cast<uint32_t>(result))) {
    case unlock::Outcome::Unlocked:
        // The card's own activity after the unlock must not look like a removal that cancels.
        m_cardWatcher.reset();
        CUnlockSuccessDlg(m_hWnd).DoModal();
        NotifyEvent(nullptr, m_readerName.GetString(), reinterpret_cast<WPARAM>(m_hWnd));
        EndDialog(IDOK);
        return;
    case unlock::Outcome::WrongCode:
        ShowFailure(fw::LoadResString(IDS_WRONG_UNLOCK_CODE).c_str());
        return;
    case unlock::Outcome::Failed: {
        CSecStr text;
        text.Format(fw::LoadResString(IDS_UNLOCK_ERROR, L"%s").c_str(), ErrorText(result));
        ShowFailure(text.GetString());
        return;
    }
    }
}

void CUnlockCardDlg::ShowFailure(const wchar_t* message) {
    CUnlockFailedDlg(m_hWnd, message, 0).DoModal();
    // The card answers each challenge once: the corrected code needs the card's next one.
    if (m_challengeMode) ShowNewChallenge();
}

void CUnlockCardDlg::OnDestroy() {
    LogScope log(L"CUnlockCardDlg::OnDestroy");
    m_destroying = true;
    if (m_timer && m_periodMs != 0) KillTimer(m_hWnd, 1);
    fw::WipeEditText(Item(IDC_UL_RESPONSE_EDIT));
    SetItemText(IDC_UL_CHALLENGE, L"");
    m_cardWatcher.reset();
    m_titleFont.Reset();
    if (m_pStaticPolicies) {
        if (HWND list = m_pStaticPolicies->GetSafeHwnd()) DestroyWindow(list);
    }
}

void CUnlockCardDlg::OnTimer(UINT_PTR) {
    if (m_timer) m_timer(m_timerContext);
}

void CUnlockCardDlg::OnMove(int, int) {
    m_newPinEdit.ResetToolTip();
    m_confirmEdit.ResetToolTip();
}

bool CUnlockCardDlg::PreTranslateMessage(const MSG& msg) {
    if (IsHelpKeyRelease(m_hWnd, msg)) OnContextualHelp();
    return false;
}

void CUnlockCardDlg::OnContextualHelp() {
    GUILOG(CVLOG_ENTRY, L"CUnlockCardDlg::OnContextualHelp");
    DoDisplayTopic(HELP_TOPIC_UNLOCK);
}

bool CUnlockCardDlg::OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) {
    if (message == kDisplayPolicies) {
        OnDisplayPINPolicies();
        result = 0;
        return true;
    }
    if (message == CardRemovedMessage()) {
        GUILOG(CVLOG_INFO, L"CUnlockCardDlg::OnCardEvent");
        OnCancel();
        result = 0;
        return true;
    }
    return CSecureDialog::OnMessage(message, wParam, lParam, result);
}
