// GetChangePINInfoFromUser_s and GetChangePINInfoFromUser: the current and a new PIN, from the
// PIN change window or from a form the caller embeds in its own window.
#include "api/guard.h"
#include "cvpingui.h"
#include "dialogs/pinchange/change_pin_main_dlg_win.h"
#include "framework/ui_scope_win.h"
#include "services/settings.h"

namespace {

constexpr unsigned kFailed = 0xFFFFFFFFu;

// Copies pin, terminated, into a caller's buffer of capacity characters. A PIN that does not fit
// is a fault of the caller: nothing is copied, and the call fails rather than return a cut PIN.
bool CopyPinToCaller(const CSecStr& pin, wchar_t* buffer, unsigned capacity, unsigned* length) {
    const unsigned count = static_cast<unsigned>(pin.GetLength());
    if (count >= capacity) {
        GUILOG(CVLOG_ERROR, L"GetChangePINInfoFromUser_s: a PIN of %u characters does not fit in %u", count, capacity);
        buffer[0] = L'\0';
        *length = 0;
        return false;
    }
    wmemcpy(buffer, pin.GetString(), count + 1);
    *length = count;
    return true;
}

struct CallerBuffers {
    wchar_t* newPin;
    unsigned newPinSize;
    unsigned* newPinLength;
    wchar_t* currentPin;
    unsigned currentPinSize;
    unsigned* currentPinLength;

    // Both PINs, or neither: a half-filled pair is wiped.
    unsigned Fill(CSecStr current, CSecStr newPin) const {
        bool ok = CopyPinToCaller(current, currentPin, currentPinSize, currentPinLength) &&
                  CopyPinToCaller(newPin, this->newPin, newPinSize, newPinLength);
        current.Empty();
        newPin.Empty();
        if (ok) return 0;
        SecureWipe(currentPin, sizeof(wchar_t) * currentPinSize);
        SecureWipe(this->newPin, sizeof(wchar_t) * newPinSize);
        *currentPinLength = *newPinLength = 0;
        return kFailed;
    }
};

unsigned FromEmbeddedForm(CChangePINDialog::Impl& form, const CallerBuffers& out) {
    GUILOG(CVLOG_INFO, L"GetChangePINInfoFromUser_s: PINs taken from the form embedded in the caller's window");
    if (!form.VerifyAndUpdateAllPolicies(form.m_strNewPin)) return kFailed;
    return out.Fill(form.m_strPin, form.m_strNewPin);
}

unsigned RunChangePin(int preventAlpha, int allowWeak, unsigned minLength, unsigned maxLength, int firstUse,
                      int showLastTry, const CallerBuffers& out, const wchar_t* readerName, HWND hParent,
                      bool requireCurrentPin, TimerCallback callback, void* context, unsigned periodMs) {
    LogScope log(L"GetChangePINInfoFromUser_s");
    if (out.newPinSize == 0 || out.currentPinSize == 0 || !out.newPin || !out.currentPin || !out.newPinLength ||
        !out.currentPinLength) {
        GUILOG(CVLOG_ERROR, L"GetChangePINInfoFromUser_s: invalid arguments");
        return kFailed;
    }
    if (!readerName) readerName = L"";
    if (showLastTry) {
        const int answer = DisplayLastPINTry(readerName);
        if (answer != 0) return static_cast<unsigned>(answer);
    }
    if (CChangePINDialog::Impl* form = FindEmbeddedChangePinForm(hParent)) return FromEmbeddedForm(*form, out);

    PwdRuleArgs rules{preventAlpha, allowWeak, 0, minLength, maxLength, 0};
    rules.bPreventSamePIN = IsSettingOn(L"Corvana.ChangePINPolicies.PreventSamePINChange");
    GUILOG(CVLOG_INFO, L"GetChangePINInfoFromUser_s: bPreventSamePIN = 0x%x", rules.bPreventSamePIN);
    rules.bDisableCancel = IsSettingOn(L"Corvana.ChangePINPolicies.DisableCancelChangePINatFirstUse") && firstUse == 1;
    GUILOG(CVLOG_INFO, L"GetChangePINInfoFromUser_s: DisableCancelChangePINatFirstUse = 0x%x", rules.bDisableCancel);

    fw::UiScope ui;
    CChangePINDialogMain dlg(&rules, 0, requireCurrentPin, hParent, 0, 0, 0, readerName, callback, context,
                             static_cast<int>(periodMs));
    if (dlg.DoModal() != IDOK) {
        GUILOG(CVLOG_INFO, L"GetChangePINInfoFromUser_s: PIN change cancelled");
        return kFailed;
    }
    return out.Fill(dlg.GetCurrentPin(), dlg.GetNewPin());
}

}  // namespace

extern "C" unsigned WINAPI GetChangePINInfoFromUser_s(int preventAlpha, int allowWeak, unsigned minLength,
                                                      unsigned maxLength, int firstUse, int showLastTry,
                                                      wchar_t* newPin, unsigned newPinSize, unsigned* newPinLength,
                                                      wchar_t* currentPin, unsigned currentPinSize,
                                                      unsigned* currentPinLength, const wchar_t* readerName,
                                                      HWND hParent, unsigned char requireCurrentPin,
                                                      TimerCallback callback, void* context, unsigned periodMs) {
    return Guarded(L"GetChangePINInfoFromUser_s", kFailed, [&] {
        const CallerBuffers out{newPin, newPinSize, newPinLength, currentPin, currentPinSize, currentPinLength};
        const unsigned result = RunChangePin(preventAlpha, allowWeak, minLength, maxLength, firstUse, showLastTry, out,
                                             readerName, hParent, requireCurrentPin != 0, callback, context, periodMs);
        GUILOG(result == 0 ? CVLOG_INFO : CVLOG_ERROR, L"GetChangePINInfoFromUser_s: returns: %d", (int)result);
        return result;
    });
}

extern "C" unsigned WINAPI GetChangePINInfoFromUser(int preventAlpha, int allowWeak, unsigned minLength,
                                                    unsigned maxLength, int firstUse, int showLastTry,
                                                    wchar_t* newPin, unsigned* newPinLength, wchar_t* currentPin,
                                                    unsigned* currentPinLength, const wchar_t* readerName,
                                                    HWND hParent, unsigned char requireCurrentPin,
                                                    TimerCallback callback, void* context, unsigned periodMs) {
    return GetChangePINInfoFromUser_s(preventAlpha, allowWeak, minLength, maxLength, firstUse, showLastTry, newPin, 256,
                                      newPinLength, currentPin, 256, currentPinLength, readerName, hParent,
                                      requireCurrentPin, callback, context, periodMs);
}
