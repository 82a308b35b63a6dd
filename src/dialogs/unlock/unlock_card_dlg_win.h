// CUnlockCardDlg: the unlock of a blocked PIN with the help desk. The user reads the card's
// challenge to the help desk, types the response it reads back and a new PIN (twice) under the
// card's live rule list; OK hands response and PIN to the card. A card without a challenge takes
// a static unlock code instead, in the same dialog without its challenge part.
#pragma once
#include <memory>

#include "cvpingui.h"
#include "dialogs/base/capslock_edit_win.h"
#include "dialogs/base/watchers_win.h"
#include "dialogs/pinchange/policies_dlg_win.h"
#include "framework/gdi_win.h"
#include "framework/secure_dialog_win.h"

class CUnlockCardDlg : public CSecureDialog {
  public:
    // Unblocks the card with the response (no dashes) and the new PIN; a card-layer code.
    typedef int (*UnlockCallback)(void* context, const CSecStr& response, const CSecStr& newPin);
    // Gets a fresh challenge; 0 when there is one.
    typedef int (*ChallengeCallback)(void* context, CSecStr& challenge);

    // rules: the length, weak-PIN and digits-only rules (the same-PIN rule does not apply). The
    // timer calls timer(timerContext) every periodMs while the dialog is open (0: never).
    CUnlockCardDlg(HWND parent, const PwdRuleArgs* rules, void* context, UnlockCallback unlock,
                   ChallengeCallback getChallenge, const wchar_t* readerName, TimerCallback timer,
                   void* timerContext, int periodMs);
    ~CUnlockCardDlg() override;

  protected:
    BOOL OnInitDialog() override;
    bool OnCommand(WORD id, WORD code, HWND control) override;
    void OnOK() override;
    void OnDestroy() override;
    void OnTimer(UINT_PTR id) override;
    void OnMove(int x, int y) override;
    bool PreTranslateMessage(const MSG& msg) override;
    bool OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) override;
    void DoDataExchange(fw::DataExchange& dx) override;

  private:
    // Asks the card for a challenge and shows it; false when it has none.
    bool ShowNewChallenge();
    void UseStaticCodeLayout();
    void OnDisplayPINPolicies();
    void OnChangeEdit();
    void OnContextualHelp();
    // The unlock code field's text, read into a secure string.
    CSecStr Response();
    void ShowFailure(const wchar_t* message);

    CCapsLockSensitiveEdit::Impl m_newPinEdit;
    CCapsLockSensitiveEdit::Impl m_confirmEdit;
    void* pContext;
    fw::Font m_titleFont;
    std::unique_ptr<CVDelegateSubscriberCardRemoved> m_cardWatcher;
    std::unique_ptr<CVDelegateSubscriberWorkstationLocked> m_lockWatcher;
    CSecStr m_readerName;
    std::unique_ptr<CVPoliciesDlg::Impl> m_pStaticPolicies;
    int bPreventAlphaPIN;
    int bAllowWeakPIN;
    unsigned dwMinPINLen;
    unsigned dwMaxPINLen;
    UnlockCallback m_unlock;
    ChallengeCallback m_getChallenge;
    TimerCallback m_timer;
    void* m_timerContext;
    int m_periodMs;
    bool m_challengeMode = false;
    bool m_destroying = false;
};
