// Subscribers that close a dialog when its card is pulled out or the workstation is locked.
// They run on the event publisher's thread and only post to the dialog's window; the dialog
// reacts on its own thread.
#pragma once
#include "framework/dialog_win.h"
#include "services/event_bus.h"
#include "services/secstr.h"

// The registered message "CVCardRemovedEvent" that the card-removal watcher posts.
UINT CardRemovedMessage();

class CVDelegateSubscriberCardRemoved : public CVDelegateSubscriber {
public:
    // readerName empty: any reader's removal closes the dialog.
    CVDelegateSubscriberCardRemoved(fw::Dialog* dialog, UINT message, const wchar_t* readerName);
    ~CVDelegateSubscriberCardRemoved() override;
    void HandleEvent(const CVEventInfo* event) override;

private:
    fw::Dialog* m_dialog;
    UINT m_message;
    CSecStr m_readerName;
};

class CVDelegateSubscriberWorkstationLocked : public CVDelegateSubscriber {
public:
    explicit CVDelegateSubscriberWorkstationLocked(fw::Dialog* dialog);
    ~CVDelegateSubscriberWorkstationLocked() override;
    void HandleEvent(const CVEventInfo* event) override;

private:
    fw::Dialog* m_dialog;
    UINT m_message = 10060;  // kept for layout compatibility; the watcher posts WM_CLOSE
};
