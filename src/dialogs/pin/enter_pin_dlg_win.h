// CEnterPinDlg: the dialog in which the user types the PIN of a card. OK is enabled only while
// the PIN's length fits the policy; the dialog closes on card removal and workstation lock.
#pragma once
#include "cvpingui.h"
#include "dialogs/base/capslock_edit_win.h"
#include "dialogs/pin/prompt_dlg_win.h"

class CEnterPinDlg : public CPromptDlg {
public:
    // prompt: the caller's own prompt text; null or empty keeps the template's.
    CEnterPinDlg(HWND parent, const wchar_t* readerName, const wchar_t* prompt, unsigned minPinLength,
                 unsigned maxPinLength, TimerCallback callback, void* context, unsigned periodMs);
    ~CEnterPinDlg() override;

    // The PIN typed, after DoModal returned IDOK and before destruction.
    CSecStr GetPinValue() const;

protected:
    BOOL OnInitDialog() override;
    bool OnCommand(WORD id, WORD code, HWND control) override;
    void OnOK() override;
    void OnTimer(UINT_PTR id) override;
    void OnMove(int x, int y) override;
    void DoDataExchange(fw::DataExchange& dx) override;

private:
    void OnEnChangeEditPassword();

    CSecStr m_prompt;
    unsigned m_minPinLength;
    unsigned m_maxPinLength;
    CSecStr m_pinValue;
    CCapsLockSensitiveEdit::Impl m_pinEdit;
    TimerCallback m_callback;
    void* m_callbackContext;
    unsigned m_periodMs;
};
