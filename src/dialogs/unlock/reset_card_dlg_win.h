// CResetCardDialog::Impl: the reset form (the PIN, or an unlock code: the response to the card's
// challenge or its static code), and CResetCardDialogMain::Impl, the modal window around it.
// Exactly one field is active; the host's OK is enabled while it holds something.
#pragma once
#include <memory>

#include "cvpingui.h"
#include "cvpingui_reset_card_dlg.h"
#include "dialogs/base/base_dialog_win.h"
#include "dialogs/base/capslock_edit_win.h"
#include "dialogs/base/watchers_win.h"
#include "framework/secure_dialog_win.h"

class CResetCardDialog::Impl : public CBaseDialog::Impl {
  public:
    Impl(int mode, const RECT* position, HWND okButton, HWND parent);
    ~Impl() override;

    int LocCreate(HWND parent);
    void SetChallenge(CSecStr challenge);
    void OnRadioClicked();
    void OnCheckOkButton();
    // The active field's text.
    CSecStr GetPin() const;
    // Empties the inactive fields (and the active one when clear), focuses the active one.
    void CheckWindow(bool clear);
    void DisablePIN();
    void StartTimer(TimerCallback callback, void* context, int periodMs);
    void StopTimer();
    void ResetToolTip();

  protected:
    BOOL OnInitDialog() override;
    bool OnCommand(WORD id, WORD code, HWND control) override;
    void OnTimer(UINT_PTR id) override;
    void OnMove(int x, int y) override { ResetToolTip(); }
    void DoDataExchange(fw::DataExchange& dx) override;

  private:
    CCapsLockSensitiveEdit::Impl& ActiveField();
    void EnableCodeControls(bool enable);

    bool bPinMode = false;
    CCapsLockSensitiveEdit::Impl m_responseEdit;
    CCapsLockSensitiveEdit::Impl m_pinEdit;
    CCapsLockSensitiveEdit::Impl m_staticCodeEdit;
    HWND m_okButton;
    bool bChallengeMode = true;
    TimerCallback m_callback = nullptr;
    void* m_callbackContext = nullptr;
    int m_periodMs = 0;
};

class CResetCardDialogMain::Impl : public CSecureDialog {
  public:
    Impl(int mode, HWND parent, int, int, int, const wchar_t* readerName, TimerCallback callback,
         void* context, int periodMs);
    ~Impl() override;

    void SetChallenge(const wchar_t* challenge);
    void DisablePIN();
    // The form's value while it is open, else the one taken when OK ended the window.
    CSecStr GetPin() const;
    void StopDetectingRemoveEvent();

  protected:
    BOOL OnInitDialog() override;
    void OnOK() override;
    void OnDestroy() override;
    void OnMove(int x, int y) override;
    bool OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) override;

  private:
    void ResizeDlg(int dx, int dy);

    std::unique_ptr<CResetCardDialog::Impl> m_form;
    HWND m_okButton = nullptr;
    int m_mode;
    CSecStr m_challenge;
    bool m_hasChallenge = false;
    bool m_pinDisabled = false;
    CSecStr m_value;
    TimerCallback m_callback;
    void* m_callbackContext;
    int m_periodMs;
    std::unique_ptr<CVDelegateSubscriberCardRemoved> m_cardWatcher;
    CSecStr m_readerName;
};
