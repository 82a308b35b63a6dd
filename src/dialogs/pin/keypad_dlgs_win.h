// The prompts shown while the PIN is typed on the reader's own PIN pad, and the confirmation
// before a PIN-always operation. None has a PIN field.
#pragma once
#include "cvpingui.h"
#include "dialogs/pin/prompt_dlg_win.h"

// "Enter your PIN on the reader": closed by the caller (CancelKeyPadPrompt), card removal or lock.
class CKeyPadDlg : public CPromptDlg {
public:
    CKeyPadDlg(HWND parent, const wchar_t* readerName, const wchar_t* prompt, TimerCallback callback, void* context,
               unsigned periodMs);

protected:
    CKeyPadDlg(const wchar_t* className, UINT templateId, HWND parent, const wchar_t* readerName,
               const wchar_t* prompt, TimerCallback callback, void* context, unsigned periodMs);
    BOOL OnInitDialog() override;
    void OnDestroy() override;
    // The prompt control of the template and the text to show when the caller gave none
    // (empty: keep the template's).
    virtual int PromptControl() const;
    virtual CSecStr DefaultPrompt() const;

    CSecStr m_prompt;

private:
    TimerCallback m_callback;
    void* m_callbackContext;
    unsigned m_periodMs;
};

// The same for a PIN change on the pad; secondStep: the new PIN is being entered.
class CKeyPadChangePinDlg : public CKeyPadDlg {
public:
    CKeyPadChangePinDlg(HWND parent, const wchar_t* readerName, const wchar_t* prompt, bool secondStep,
                        TimerCallback callback, void* context, unsigned periodMs);

protected:
    int PromptControl() const override;
    CSecStr DefaultPrompt() const override;

private:
    bool m_secondStep;
};

// "This operation needs your PIN": OK or Cancel.
class CPINAlwaysPromptDlg : public CPromptDlg {
public:
    CPINAlwaysPromptDlg(HWND parent, const wchar_t* readerName);

protected:
    BOOL OnInitDialog() override;
};

// Ends the PIN-pad prompt from another thread. A prompt still being created ends as soon as its
// window exists, so a card that answers early cannot leave its caller waiting.
void CancelPinPadPrompt();
// Called when a prompt is over: a cancel that came too late for it must not end the next one.
void ForgetPinPadCancel();
