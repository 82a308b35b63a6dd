// The PIN-pad prompts and the PIN-always confirmation.
#include <functional>
#include <memory>
#include "api/guard.h"
#include "api/module_state.h"
#include "api/prompt_gate_win.h"
#include "cvpingui.h"
#include "dialogs/pin/keypad_dlgs_win.h"
#include "framework/ui_scope_win.h"

namespace {

const PromptTexts kKeyPadTexts = {L"ShowKeyPadPrompt", L"Key Pad prompt action NOT allowed",
                                  L"Enter PIN action allowed"};
const PromptTexts kKeyPadChangeTexts = {L"ShowKeyPadChgPinPrompt", L"Key Pad prompt action NOT allowed",
                                        L"Enter PIN action allowed"};
const PromptTexts kPinAlwaysTexts = {L"ShowPINAlwaysPrompt", L"PIN Always Prompt action NOT allowed",
                                     L"PIN Always Prompt action allowed"};

// The caller learns the card's answer from the card: whatever ends the prompt, the result is -1.
int RunPinPadPrompt(const PromptTexts& texts, HWND hParent, const wchar_t* readerName, bool lastTry,
                    const std::function<std::unique_ptr<CKeyPadDlg>()>& makeDialog) {
    LogScope log(texts.function);
    PromptGate gate(texts, g_pinPadBusy);
    if (!gate.Enter(hParent, readerName, lastTry)) return gate.Refused();
    // A cancel left over from the previous prompt is not meant for this one.
    ForgetPinPadCancel();
    SetForegroundWindow(hParent);
    {
        fw::UiScope ui;
        std::unique_ptr<CKeyPadDlg> dlg = makeDialog();
        if (dlg->DoModal() == IDCANCEL) GUILOG(CVLOG_INFO, L"%s: Key Pad prompt action cancelled", texts.function);
    }
    return gate.Return(CVPIN_FAILED);
}

void CancelPinPad(const wchar_t* function) {
    LogScope log(function);
    if (g_pinPadBusy.load()) {
        CancelPinPadPrompt();
    } else {
        GUILOG(CVLOG_INFO, L"%s: No Key Pad prompt to cancel", function);
    }
}

}  // namespace

extern "C" int WINAPI ShowKeyPadPrompt(HWND hParent, const wchar_t* readerName, const wchar_t* prompt,
                                       int displayLastPINTry, TimerCallback callback, void* context,
                                       unsigned periodMs) {
    return Guarded(L"ShowKeyPadPrompt", CVPIN_FAILED, [&] {
        const wchar_t* reader = readerName ? readerName : L"";
        return RunPinPadPrompt(kKeyPadTexts, hParent, reader, (displayLastPINTry & 0xFF) != 0, [&] {
            return std::make_unique<CKeyPadDlg>(hParent, reader, prompt, callback, context, periodMs);
        });
    });
}

extern "C" int WINAPI ShowKeyPadChgPinPrompt(HWND hParent, const wchar_t* readerName, const wchar_t* prompt,
                                             BOOL secondStep, char displayLastPINTry, TimerCallback callback,
                                             void* context, unsigned periodMs) {
    return Guarded(L"ShowKeyPadChgPinPrompt", CVPIN_FAILED, [&] {
        const wchar_t* reader = readerName ? readerName : L"";
        return RunPinPadPrompt(kKeyPadChangeTexts, hParent, reader, displayLastPINTry != 0, [&] {
            return std::unique_ptr<CKeyPadDlg>(std::make_unique<CKeyPadChangePinDlg>(
                hParent, reader, prompt, secondStep != FALSE, callback, context, periodMs));
        });
    });
}

extern "C" void WINAPI CancelKeyPadPrompt(void) {
    GuardedVoid(L"CancelKeyPadPrompt", [] { CancelPinPad(L"CancelKeyPadPrompt"); });
}

extern "C" void WINAPI CancelKeyPadChgPinPrompt(void) {
    GuardedVoid(L"CancelKeyPadChgPinPrompt", [] { CancelPinPad(L"CancelKeyPadChgPinPrompt"); });
}

extern "C" int WINAPI ShowPINAlwaysPrompt(HWND hParent, const wchar_t* readerName) {
    return Guarded(L"ShowPINAlwaysPrompt", CVPIN_FAILED, [&] {
        LogScope log(L"ShowPINAlwaysPrompt");
        const wchar_t* reader = readerName ? readerName : L"";
        PromptGate gate(kPinAlwaysTexts, g_pinPromptBusy);
        if (!gate.Enter(hParent, reader, false)) return gate.Refused();
        INT_PTR answer;
        {
            fw::UiScope ui;
            CPINAlwaysPromptDlg dlg(hParent, reader);
            answer = dlg.DoModal();
        }
        if (answer == IDOK) {
            GUILOG(CVLOG_INFO, L"ShowPINAlwaysPrompt: PIN Always Prompt action validated");
            return gate.Return(CVPIN_OK);
        }
        GUILOG(CVLOG_INFO, L"ShowPINAlwaysPrompt: PIN Always Prompt action cancelled");
        return gate.Return(CVPIN_FAILED);
    });
}
