#include "dialogs/base/watchers_win.h"
#include "dialogs/base/watch_rules.h"
#include "services/log.h"

UINT CardRemovedMessage() {
    static const UINT message = RegisterWindowMessageW(L"CVCardRemovedEvent");
    return message;
}

namespace {
// The dialog's window may be gone, or not yet there; posting then would go nowhere useful.
HWND LiveWindow(fw::Dialog* dialog) {
    HWND hwnd = dialog ? dialog->GetSafeHwnd() : nullptr;
    return hwnd && IsWindow(hwnd) ? hwnd : nullptr;
}
}  // namespace

CVDelegateSubscriberCardRemoved::CVDelegateSubscriberCardRemoved(fw::Dialog* dialog, UINT message,
                                                                 const wchar_t* readerName)
    : m_dialog(dialog), m_message(message), m_readerName(readerName) {
    LogScope log(L"CVDelegateSubscriberCardRemoved Constructor");
    int rc = Subscribe(CV_EVENT_CARD_REMOVED, &CV_SOURCE_CARD_EVENTS);
    if (rc != 0) GUILOG(CVLOG_ERROR, L"Subscribe failed (%d)", rc);
}

CVDelegateSubscriberCardRemoved::~CVDelegateSubscriberCardRemoved() {
    GUILOG(CVLOG_ENTRY, L"CVDelegateSubscriberCardRemoved Destructor");
    UnSubscribe();
}

void CVDelegateSubscriberCardRemoved::HandleEvent(const CVEventInfo* event) {
    GUILOG(CVLOG_ENTRY, L"CVDelegateSubscriberCardRemoved::HandleEvent");
    if (!event) return;
    HWND hwnd = LiveWindow(m_dialog);
    if (!hwnd) return;
    if (ReaderMatches(m_readerName.GetString(), event->readerName)) PostMessageW(hwnd, m_message, 1, 0);
}

CVDelegateSubscriberWorkstationLocked::CVDelegateSubscriberWorkstationLocked(fw::Dialog* dialog) : m_dialog(dialog) {
    GUILOG(CVLOG_ENTRY,
           L"CVDelegateSubscriberWorkstationLocked::CVDelegateSubscriberWorkstationLocked() - Constructor");
    int rc = Subscribe(CV_EVENT_SESSION_STATE, &CV_SOURCE_SESSION_STATE);
    if (rc != 0) GUILOG(CVLOG_ERROR, L"Subscribe failed (%d)", rc);
}

CVDelegateSubscriberWorkstationLocked::~CVDelegateSubscriberWorkstationLocked() {
    GUILOG(CVLOG_ENTRY,
           L"CVDelegateSubscriberWorkstationLocked::~CVDelegateSubscriberWorkstationLocked() - Destructor");
    UnSubscribe();
}

void CVDelegateSubscriberWorkstationLocked::HandleEvent(const CVEventInfo* event) {
    if (!event) {
        GUILOG(CVLOG_ERROR, L"CVDelegateSubscriberWorkstationLocked::HandleEvent(): pEventInfo is NULL");
        return;
    }
    if (!IsSessionLockingCode(event->code)) {
        GUILOG(CVLOG_INFO, L"CVDelegateSubscriberWorkstationLocked::HandleEvent(): event is ignored");
        return;
    }
    GUILOG(CVLOG_INFO,
           L"CVDelegateSubscriberWorkstationLocked::HandleEvent(): workstation is being locked, close the dialog box.");
    if (HWND hwnd = LiveWindow(m_dialog)) PostMessageW(hwnd, WM_CLOSE, 0, 0);
}
