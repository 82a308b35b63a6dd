#include "dialogs/base/detect_card_removed_dlg_win.h"
#include "services/log.h"

CVDetectCardRemovedDlg::CVDetectCardRemovedDlg(UINT templateId, HWND parent, const wchar_t* readerName)
    : CSecureDialog(templateId, parent), m_readerName(readerName) {
    LogScope log(L"CVDetectCardRemovedDlg");
    GUILOG(CVLOG_INFO, L"CVDetectCardRemovedDlg: pParent = %x, Reader = %s", (unsigned)(UINT_PTR)parent,
           m_readerName.GetString());
}

CVDetectCardRemovedDlg::~CVDetectCardRemovedDlg() {
    GUILOG(CVLOG_ENTRY, L"~CVDetectCardRemovedDlg");
    StopDetectingRemoveEvent();
}

BOOL CVDetectCardRemovedDlg::OnInitDialog() {
    LogScope log(L"CVDetectCardRemovedDlg::OnInitDialog");
    OnInitDialogSecure();
    m_watcher = std::make_unique<CVDelegateSubscriberCardRemoved>(this, CardRemovedMessage(), m_readerName.GetString());
    return TRUE;
}

void CVDetectCardRemovedDlg::OnDestroy() {
    LogScope log(L"CVDetectCardRemovedDlg::OnDestroy");
    StopDetectingRemoveEvent();
}

bool CVDetectCardRemovedDlg::OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) {
    if (message == CardRemovedMessage()) {
        OnCardEvent();
        result = 0;
        return true;
    }
    return CSecureDialog::OnMessage(message, wParam, lParam, result);
}

void CVDetectCardRemovedDlg::OnCardEvent() {
    GUILOG(CVLOG_ENTRY, L"CVDetectCardRemovedDlg::OnCardEvent");
    EndDialog(IDCANCEL);
}

void CVDetectCardRemovedDlg::StopDetectingRemoveEvent() {
    GUILOG(CVLOG_ENTRY, L"CVDetectCardRemovedDlg::StopDetectingRemoveEvent");
    if (!m_watcher) return;
    // Logged whenever the watcher stops, whatever the reason: the log readers expect it.
    GUILOG(CVLOG_INFO, L"CVDetectCardRemovedDlg::StopDetectingRemoveEvent: Card removed");
    m_watcher.reset();
}
