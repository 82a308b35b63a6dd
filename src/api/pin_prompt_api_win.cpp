// GetPINFromUser and the small functions around it.
#include <cstdlib>
#include "api/guard.h"
#include "api/module_state.h"
#include "api/prompt_gate_win.h"
#include "cvpingui.h"
#include "dialogs/pin/enter_pin_dlg_win.h"
#include "framework/ui_scope_win.h"
#include "resource_ids.h"
#include "services/msgbox_win.h"

namespace {

const PromptTexts kGetPinTexts = {L"GetPINFromUser", L"Enter PIN action NOT allowed", L"Enter PIN action allowed"};

// Hands the PIN to the caller in the ANSI code page. The wide copy is wiped on every path.
int CopyPinOut(CSecStr& pin, char** pinBuffer, unsigned* pinLength, bool& allocationFailed) {
    int length = pin.GetLength();
    if (length == 0) {
        GUILOG(CVLOG_INFO, L"GetPINFromUser: PIN empty");
        *pinBuffer = nullptr;
        *pinLength = 0;
        return CVPIN_OK;
    }
    // Characters outside a single-byte code page take more than one byte: size for the
    // conversion, so that it can never overflow, and report bytes, which is what the caller
    // hands back to FreeGetPinBuffer.
    int bytes = WideCharToMultiByte(CP_ACP, 0, pin.GetString(), length, nullptr, 0, nullptr, nullptr);
    if (bytes < length) bytes = length;
    char* buffer = static_cast<char*>(malloc(static_cast<size_t>(bytes) + 1));
    if (!buffer) {
        GUILOG(CVLOG_ERROR, L"GetPINFromUser: PIN buffer allocation failed");
        pin.Empty();  // overwrites the characters
        allocationFailed = true;
        return CVPIN_FAILED;
    }
    int written = WideCharToMultiByte(CP_ACP, 0, pin.GetString(), length, buffer, bytes, nullptr, nullptr);
    pin.Empty();
    if (written <= 0) {
        SecureWipe(buffer, static_cast<size_t>(bytes) + 1);
        free(buffer);
        return CVPIN_FAILED;
    }
    *pinBuffer = buffer;
    *pinLength = static_cast<unsigned>(written);
    return CVPIN_OK;
}

int RunGetPin(HWND hParent, const wchar_t* readerName, int displayLastPINTry, unsigned minPinLength,
              unsigned maxPinLength, char** pinBuffer, unsigned* pinLength, TimerCallback callback,
              void* callbackContext, unsigned timerPeriodMs) {
    LogScope log(L"GetPINFromUser");
    if (!pinBuffer || !pinLength) {
        GUILOG(CVLOG_ERROR, L"GetPINFromUser: invalid output pointers");
        return CVPIN_FAILED;
    }
    *pinBuffer = nullptr;
    *pinLength = 0;
    if (!readerName) readerName = L"";
    PromptGate gate(kGetPinTexts, g_pinPromptBusy);
    if (!gate.Enter(hParent, readerName, displayLastPINTry != 0)) return gate.Refused();
    SetForegroundWindow(hParent);

    fw::UiScope ui;
    CEnterPinDlg dlg(hParent, readerName, CustomPinPrompt().GetString(), minPinLength, maxPinLength, callback,
                     callbackContext, timerPeriodMs);
    if (dlg.DoModal() != IDOK) {
        GUILOG(CVLOG_INFO, L"GetPINFromUser: Enter PIN action cancelled");
        return gate.Return(CVPIN_FAILED);
    }
    GUILOG(CVLOG_INFO, L"GetPINFromUser: Enter PIN action validated");
    CSecStr pin = dlg.GetPinValue();
    bool allocationFailed = false;
    int result = CopyPinOut(pin, pinBuffer, pinLength, allocationFailed);
    // Out of memory in the middle of a PIN prompt: the flag stays set on purpose, so that this
    // process asks for no more PINs it could not hand over.
    if (allocationFailed) gate.KeepBusy();
    return gate.Return(result);
}

}  // namespace

extern "C" int WINAPI GetPINFromUser(HWND hParent, const wchar_t* readerName, int displayLastPINTry,
                                     unsigned minPinLength, unsigned maxPinLength, char** pinBuffer,
                                     unsigned* pinLength, TimerCallback callback, void* callbackContext,
                                     unsigned timerPeriodMs) {
    return Guarded(L"GetPINFromUser", CVPIN_FAILED, [&] {
        return RunGetPin(hParent, readerName, displayLastPINTry, minPinLength, maxPinLength, pinBuffer, pinLength,
                         callback, callbackContext, timerPeriodMs);
    });
}

extern "C" void WINAPI FreeGetPinBuffer(void* buffer, size_t size) {
    GUILOG(CVLOG_ENTRY, L"--->FreeBuffer");
    if (buffer) {
        SecureWipe(buffer, size);
        free(buffer);
    }
    GUILOG(CVLOG_EXIT, L"<---FreeBuffer");
}

extern "C" void WINAPI FreeReaderNameBuffer(void*) {
    GUILOG(CVLOG_ENTRY, L"--->FreeReaderNameBuffer");
    GUILOG(CVLOG_EXIT, L"<---FreeReaderNameBuffer");
}

extern "C" int WINAPI DisplayLastPINTry(const wchar_t* readerName) {
    return Guarded(L"DisplayLastPINTry", CVPIN_FAILED, [&] {
        GUILOG(CVLOG_ENTRY, L"--->DisplayLastPINTry");
        fw::UiScope ui;
        std::wstring text = fw::LoadResString(
            IDS_LAST_PIN_TRY,
            L"This is your last try: if you enter a wrong PIN now, the card will be blocked.\r\n\r\n"
            L"Do you want to continue?");
        int answer = CVErrMesDisplayExWithParentParamAndReaderAndHelp(
            nullptr, text.c_str(), readerName ? readerName : L"", HELP_TOPIC_PIN_PROMPT,
            MB_OKCANCEL | MB_ICONWARNING | MB_DEFBUTTON2);
        GUILOG(CVLOG_EXIT, L"<---DisplayLastPINTry");
        return answer == IDOK ? CVPIN_OK : CVPIN_FAILED;
    });
}

extern "C" void WINAPI SetPinPromptString(const wchar_t* text) {
    GuardedVoid(L"SetPinPromptString", [&] {
        LogScope log(L"SetPinPromptString");
        if (text)
            CustomPinPrompt() = text;
        else
            CustomPinPrompt().Empty();
    });
}
