// CVDetectCardRemovedDlg: a dialog that ends with IDCANCEL when its reader's card is removed.
#pragma once
#include <memory>
#include "dialogs/base/watchers_win.h"
#include "framework/secure_dialog_win.h"

class CVDetectCardRemovedDlg : public CSecureDialog {
public:
    CVDetectCardRemovedDlg(UINT templateId, HWND parent, const wchar_t* readerName);
    ~CVDetectCardRemovedDlg() override;

    const CSecStr& ReaderName() const { return m_readerName; }

protected:
    BOOL OnInitDialog() override;
    void OnDestroy() override;
    bool OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) override;
    void OnCardEvent();
    void StopDetectingRemoveEvent();

private:
    std::unique_ptr<CVDelegateSubscriberCardRemoved> m_watcher;
    CSecStr m_readerName;
};
