// CChangePINDialogMain: the modal PIN change window: the form, OK and Cancel. It closes when
// the card is removed (even when Cancel is disabled) and when the workstation is locked.
#pragma once
#include <memory>
#include "cvpingui.h"
#include "dialogs/base/watchers_win.h"
#include "dialogs/pinchange/change_pin_dlg_win.h"
#include "framework/secure_dialog_win.h"

class CChangePINDialogMain : public CSecureDialog {
public:
    CChangePINDialogMain(const PwdRuleArgs* rules, int unused, bool bRequireCurrentPIN, HWND parent, int, int, int,
                         const wchar_t* readerName, TimerCallback callback, void* context, int periodMs);
    ~CChangePINDialogMain() override;

    // The PINs typed, read after DoModal returned IDOK; empty without a form.
    CSecStr GetCurrentPin() const;
    CSecStr GetNewPin() const;

protected:
    BOOL OnInitDialog() override;
    void OnOK() override;
    void OnCancel() override;
    void OnDestroy() override;
    void OnMove(int x, int y) override;
    bool OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) override;

private:
    void ResizeDlg(int controlId, int dy);

    std::unique_ptr<CVDelegateSubscriberWorkstationLocked> m_lockWatcher;
    PwdRuleArgs m_rules;
    std::unique_ptr<CChangePINDialog::Impl> m_pChangePINDlg;
    HWND m_okButton = nullptr;
    bool bRequireCurrentPIN;
    TimerCallback m_callback;
    void* m_callbackContext;
    int m_periodMs;
    std::unique_ptr<CVDelegateSubscriberCardRemoved> m_cardWatcher;
    CSecStr m_readerName;
};
