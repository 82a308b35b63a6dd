// ShowUnlockCode and DisplayUnlockCode: the card's stored unlock code, shown once.
#include "api/guard.h"
#include "card/cv_card_management.h"
#include "card/cv_reader.h"
#include "cvpingui.h"
#include "dialogs/base/error_text_win.h"
#include "dialogs/unlock/outcome_dlgs_win.h"
#include "dialogs/unlock/unlock_code_dlg_win.h"
#include "dialogs/unlock/unlock_text.h"
#include "framework/ui_scope_win.h"
#include "resource_ids.h"
#include "services/msgbox_win.h"
#include "services/settings.h"

namespace {

// The code's source and its removal, as the card layer or a caller gives them.
struct UnlockCodeSource {
    void* context;
    int (*getCode)(void* context, CSecStr* code);
    void (*removeCode)(void* context);
};

unsigned ShowCode(HWND parent, const UnlockCodeSource& source, const wchar_t* readerName) {
    CSecStr code;
    HCURSOR cursor = SetCursor(LoadCursorW(nullptr, IDC_WAIT));
    const int rc = source.getCode ? source.getCode(source.context, &code) : -1;
    SetCursor(cursor);
    if (rc != 0) {
        GUILOG(CVLOG_ERROR, L"pGetUnlockCode returned an error (%d)", rc);
        CSecStr text;
        text.Format(fw::LoadResString(IDS_UNLOCK_CODE_ERROR, L"%s").c_str(), ErrorText(rc));
        CVErrMesDisplayEx(parent, text.GetString(), MB_OK | MB_ICONERROR);
        return 0;
    }
    GUILOG(CVLOG_INFO, L"pGetUnlockCode returned CV_OBJ_API_OK");
    if (code.IsEmpty()) {
        CVErrMesDisplayEx(parent, fw::LoadResString(IDS_NO_UNLOCK_CODE).c_str(), MB_OK | MB_ICONINFORMATION);
        return 1;
    }
    CSecStr shown = unlock::GroupByFour(code);
    code.Empty();
    unsigned result = 0;
    if (ReadIntegerSetting(L"Corvana.UserConsole.HideUnlockCode", 0) == 0) {
        CDisplayUnlockCodeDlg dlg(parent, shown.GetString(), readerName, 0);
        shown.Empty();
        if (dlg.DoModal() == IDOK) {
            if (source.removeCode) source.removeCode(source.context);
            result = 1;
        }
    }
    GUILOG(CVLOG_INFO, L"DisplayUnlockCode (%d)", (int)result);
    return result;
}

int CodeFromCard(void* context, CSecStr* code) {
    return context ? static_cast<int>(static_cast<CVCardManagement*>(context)->GetUnlockCode(code)) : 0;
}

void RemoveFromCard(void* context) {
    if (context) static_cast<CVCardManagement*>(context)->RemoveUnlockCode();
}

// A caller's callbacks: the code is written into a secure buffer that is wiped after use.
struct CallerCallbacks {
    void* context;
    CVGetUnlockCodeCallback getCode;
    CVRemoveUnlockCodeCallback removeCode;
};

int CodeFromCaller(void* context, CSecStr* code) {
    const auto* caller = static_cast<const CallerCallbacks*>(context);
    if (!caller->getCode) return -1;
    constexpr unsigned kCapacity = 512;
    CSecStr buffer;
    wchar_t* text = buffer.GetBuffer(kCapacity);
    text[0] = L'\0';
    const int rc = caller->getCode(caller->context, text, kCapacity);
    text[kCapacity - 1] = L'\0';
    buffer.ReleaseBuffer(-1);
    if (rc == 0) *code = buffer;
    return rc;
}

void RemoveByCaller(void* context) {
    const auto* caller = static_cast<const CallerCallbacks*>(context);
    if (caller->removeCode) caller->removeCode(caller->context);
}

unsigned RunShowUnlockCode(HWND parent, const wchar_t* readerName) {
    if (!readerName) readerName = L"";
    CVReader reader(readerName);
    CVConnection connection;
    const uint32_t rc = reader.Connect(connection);
    unsigned result = 0;
    if (rc != 0) {
        GUILOG(CVLOG_ERROR, L"Reader.Connect failed (%d)", (int)rc);
        CSecStr text;
        text.Format(L"The following error has occured while connecting to the reader:\n\n%s",
                    ErrorText(static_cast<int>(rc)));
        CUnlockFailedDlg(parent, text.GetString(), 1).DoModal();
    } else {
        CVCardManagement card(reader);
        result = ShowCode(parent, {&card, CodeFromCard, RemoveFromCard}, readerName) == 1 ? 1 : 0;
        reader.Disconnect(connection);
    }
    GUILOG(CVLOG_INFO, L"ShowUnlockCode (%d)", (int)result);
    return result;
}

} // namespace

extern "C" unsigned WINAPI ShowUnlockCode(HWND hParent, const wchar_t* readerName) {
    LogScope log(L"ShowUnlockCode");
    return Guarded(L"ShowUnlockCode", 0u, [&] {
        fw::UiScope ui;
        return RunShowUnlockCode(hParent, readerName);
    });
}

extern "C" unsigned WINAPI DisplayUnlockCode(HWND hParent, void* context, CVGetUnlockCodeCallback getCode,
                                             CVRemoveUnlockCodeCallback removeCode,
                                             const wchar_t* readerName) {
    LogScope log(L"DisplayUnlockCode");
    return Guarded(L"DisplayUnlockCode", 0u, [&] {
        fw::UiScope ui;
        CallerCallbacks caller{context, getCode, removeCode};
        return ShowCode(hParent, {&caller, getCode ? CodeFromCaller : nullptr, RemoveByCaller},
                        readerName ? readerName : L"");
    });
}
