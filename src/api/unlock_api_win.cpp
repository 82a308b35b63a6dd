// ShowUnlockDialog and ShowCMLockedDlg: the unlock of a blocked card with the help desk, and
// the notice that the card manager has blocked it.
#include <memory>

#include "api/guard.h"
#include "card/cv_card_management.h"
#include "card/cv_reader.h"
#include "cvpingui.h"
#include "dialogs/base/error_text_win.h"
#include "dialogs/unlock/cm_locked_dlg_win.h"
#include "dialogs/unlock/outcome_dlgs_win.h"
#include "dialogs/unlock/unlock_card_dlg_win.h"
#include "framework/ui_scope_win.h"
#include "resource_ids.h"
#include "services/settings.h"
#include "services/toast_win.h"
#include "services/ui_mode_win.h"

namespace {

// A toast that is deleted with its owner; empty when none could be made.
using Toast = std::unique_ptr<CToastManager, void (*)(CToastManager*)>;

Toast MakeToast(const std::wstring& title, const std::wstring& text) {
    return Toast(nvCreateToastManager(title.c_str(), text.c_str(), true), nvDeleteToastManager);
}

// Raises a toast with the title and text of two settings; false when none could be raised.
bool ToastFromSettings(const wchar_t* titleKey, const wchar_t* textKey) {
    std::wstring title, text;
    ReadStringSetting(titleKey, title);
    ReadStringSetting(textKey, text);
    Toast toast = MakeToast(title, text);
    return toast && toast->Show(nullptr);
}

int UnlockOnCard(void* context, const CSecStr& response, const CSecStr& newPin) {
    return context ? static_cast<int>(static_cast<CVCardManagement*>(context)->UnlockPIN(response, newPin))
                   : 0;
}

int ChallengeFromCard(void* context, CSecStr& challenge) {
    return context ? static_cast<int>(static_cast<CVCardManagement*>(context)->GetUnlockChallenge(&challenge))
                   : 0;
}

void WINAPI TimeoutCallback(void* context) {
    GUILOG(CVLOG_ENTRY, L"TimeoutCallback");
    if (!context) {
        GUILOG(CVLOG_ERROR, L"TimeoutCallback: Invalid Connection!");
        return;
    }
    static_cast<CVConnection*>(context)->ResetTransactionTimeout();
}

unsigned UnlockWithHelpDesk(HWND parent, const wchar_t* readerName, CVConnection& connection,
                            CVCardManagement& card) {
    uint32_t minLength = CVPIN_NO_LENGTH_RULE, maxLength = CVPIN_NO_LENGTH_RULE, timeout = 0;
    card.GetMinPINLen(&minLength);
    card.GetMaxPINLen(&maxLength);
    const bool weakCheck = card.IsWeakPINCheckActivated();
    const bool digitsOnly = card.IsAlphaPINCheckActivated();
    card.GetTransactionTimeoutValue(&timeout);

    // Where the user cannot see the dialog (the secure desktop, an app container), a toast asks
    // them to come back to the desktop; it stays until the dialog is done.
    Toast toast(nullptr, nvDeleteToastManager);
    const int mode = nvGetUIMode();
    if (mode == 2 || mode == 3) {
        toast = MakeToast(
            fw::LoadResString(IDS_UNLOCK_TOAST_TITLE, L"PIN Blocked"),
            fw::LoadResString(IDS_UNLOCK_TOAST_TEXT, L"Please switch to the Desktop to unlock your card."));
        if (toast) toast->Show(nullptr);
    }

    GUILOG(CVLOG_INFO, L"ShowUnlockDialog: displaying unlock dialog box");
    connection.BeginTransaction();
    const PwdRuleArgs rules{digitsOnly ? 1 : 0, weakCheck ? 0 : 1, 0, minLength, maxLength, 0};
    // The card's time-out is in seconds; the transaction is renewed at half of it.
    const int periodMs = static_cast<int>(timeout > 0x3FFFFFu ? 0x7FFFFFFFu : timeout * 500u);
    CUnlockCardDlg dlg(parent, &rules, &card, UnlockOnCard, ChallengeFromCard, readerName, TimeoutCallback,
                       &connection, periodMs);
    const INT_PTR result = dlg.DoModal();
    GUILOG(CVLOG_INFO, L"ShowUnlockDialog: unlock dialog box returned 0x%x", (unsigned)result);
    connection.EndTransaction();
    if (toast) toast->Hide();
    return static_cast<unsigned>(result);
}

unsigned RunUnlock(HWND parent, const wchar_t* readerName, void* hReader) {
    if (!readerName) readerName = L"";
    fw::UiScope ui;
    std::unique_ptr<CVReader> reader;
    if (hReader) {
        reader = std::make_unique<CVReader>(readerName, static_cast<NV::SMMW::IReader*>(hReader));
    } else {
        GUILOG(CVLOG_INFO, L"ShowUnlockDialog: creating new CVReader");
        reader = std::make_unique<CVReader>(readerName);
    }
    GUILOG(CVLOG_INFO, L"ShowUnlockDialog: connecting to reader");
    CVConnection connection;
    const uint32_t rc = reader->Connect(connection);
    if (rc != 0) {
        GUILOG(CVLOG_ERROR, L"ShowUnlockDialog: connection to reader failed with error code 0x%x", rc);
        CSecStr text;
        text.Format(L"The following error has occured while connecting to the reader:\n\n%s",
                    ErrorText(static_cast<int>(rc)));
        CUnlockFailedDlg(parent, text.GetString(), 0).DoModal();
        return IDCANCEL;
    }
    GUILOG(CVLOG_INFO, L"ShowUnlockDialog: connection to reader succeeded");
    unsigned result;
    {
        CVCardManagement card(*reader);
        GUILOG(CVLOG_INFO, L"ShowUnlockDialog: calling IsUnlockAlllowed");
        if (card.IsUnlockAllowed()) {
            GUILOG(CVLOG_INFO, L"ShowUnlockDialog: IsUnlockAllowed returned TRUE");
            result = UnlockWithHelpDesk(parent, readerName, connection, card);
        } else {
            GUILOG(CVLOG_INFO, L"ShowUnlockDialog: IsUnlockAllowed returned FALSE");
            if (ToastFromSettings(L"Corvana.Notifications.CardLocked.ToastTitle",
                                  L"Corvana.Notifications.CardLocked.ToastMessage"))
                result = CVPIN_UNLOCK_TOAST;
            else
                result = static_cast<unsigned>(CUnlockInitToolDlg(parent, readerName).DoModal());
        }
    }
    reader->Disconnect(connection);
    return result;
}

} // namespace

extern "C" unsigned WINAPI ShowUnlockDialog(HWND hParent, const wchar_t* readerName, void* hReader) {
    LogScope log(L"ShowUnlockDialog");
    return Guarded(L"ShowUnlockDialog", static_cast<unsigned>(IDCANCEL), [&] {
        const unsigned result = RunUnlock(hParent, readerName, hReader);
        GUILOG(result == IDOK ? CVLOG_INFO : CVLOG_ERROR, L"ShowUnlockDialog: returns: %u", result);
        return result;
    });
}

extern "C" void WINAPI ShowCMLockedDlg(HWND hParent, const wchar_t* readerName) {
    LogScope log(L"ShowCMLockedDlg");
    GuardedVoid(L"ShowCMLockedDlg", [&] {
        if (ToastFromSettings(L"Corvana.Notifications.BlockedCardManager.BlockedCardManagerToastTitle",
                              L"Corvana.Notifications.BlockedCardManager.BlockedCardManagerToastMessage"))
            return;
        fw::UiScope ui;
        CCMLockedDlg(hParent, readerName ? readerName : L"").DoModal();
    });
}
