// CChangePINDialog::Impl: the PIN change form (current, new and confirmation PIN over the live
// rule list). A child form: the PIN change window hosts it, and other components may embed it in
// windows of their own (through the exported handle CChangePINDialog); GetChangePINInfoFromUser_s
// then collects the PINs from the form under the caller's window instead of opening one.
#pragma once
#include <memory>
#include "cvpingui.h"
#include "cvpingui_change_pin_dlg.h"
#include "dialogs/base/base_dialog_win.h"
#include "dialogs/base/capslock_edit_win.h"
#include "dialogs/pinchange/policies_dlg_win.h"

class CChangePINDialog::Impl : public CBaseDialog::Impl {
public:
    // unused: kept for the exported signature. okButton (may be null) is enabled exactly when
    // the PINs may be accepted. Margins in pixels, handed to the rule list. The timer calls
    // callback(context) every periodMs while the form is open (0 or no callback: none).
    Impl(int unused, int mode, bool bRequireCurrentPIN, const RECT* position, const PwdRuleArgs* rules,
         HWND okButton, HWND parent, int nTopMargin, int nLeftShift, int nRowSpacing, TimerCallback callback,
         void* context, int periodMs);
    ~Impl() override;

    // Creates the form as a child of parent; non-zero on success.
    int LocCreate(HWND parent);

    // Evaluates every rule against the fields, updates the rule list and OK. False when a rule
    // is not met (an empty current PIN only disables OK). Wipes newPin.
    bool VerifyAndUpdateAllPolicies(CSecStr newPin);
    void EraseAllPinBuffers();
    // Hides the caps-lock balloons of the three fields.
    void ResetToolTip();

    // The last text of the current and the new PIN field.
    CSecStr m_strPin;
    CSecStr m_strNewPin;

protected:
    BOOL OnInitDialog() override;
    bool OnCommand(WORD id, WORD code, HWND control) override;
    void OnTimer(UINT_PTR id) override;
    void OnDestroy() override;
    void OnMove(int x, int y) override;
    void DoDataExchange(fw::DataExchange& dx) override;

private:
    void OnEnChangeEditPin();
    void OnEnChangeEditPinNew();
    void OnEnChangeEditPinConfirm();
    void DestroyPolicies();

    CCapsLockSensitiveEdit::Impl m_currentEdit;
    CCapsLockSensitiveEdit::Impl m_newEdit;
    CCapsLockSensitiveEdit::Impl m_confirmEdit;
    CSecStr m_strConfirmPin;
    PwdRuleArgs m_rules{0, 0, 0, CVPIN_NO_LENGTH_RULE, CVPIN_NO_LENGTH_RULE, 0};
    bool m_hasRules = false;
    std::unique_ptr<CVPoliciesDlg::Impl> m_pPoliciesDlg;
    HWND m_okButton;
    bool m_bPreventSmallPINEntry;  // read for hosts that look at it; the form does not use it
    int nTopMargin;
    int nLeftShift;
    int nRowSpacing;
    bool bRequireCurrentPIN;
    TimerCallback m_callback;
    void* m_callbackContext;
    int m_periodMs;
    bool m_destroying = false;
};

// The live form whose window is a child of parent; the one created last when there are several.
CChangePINDialog::Impl* FindEmbeddedChangePinForm(HWND parent);
