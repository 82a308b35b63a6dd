// The three small dialogs that tell how an unlock ended: failed (with the reason), succeeded, or
// impossible from here (the card is locked for good). Each opens on top of every other window
// and closes when the workstation is locked; the last one also when its card is removed.
#pragma once
#include <memory>

#include "dialogs/base/detect_card_removed_dlg_win.h"
#include "dialogs/base/watchers_win.h"
#include "framework/gdi_win.h"
#include "framework/secure_dialog_win.h"

class CUnlockFailedDlg : public CSecureDialog {
  public:
    // mode 1: the failure to read an unlock code (own title, heading and icon); otherwise an
    // unlock that failed.
    CUnlockFailedDlg(HWND parent, const wchar_t* message, int mode);

  protected:
    BOOL OnInitDialog() override;
    bool PreTranslateMessage(const MSG& msg) override;
    bool OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) override;
    void OnContextualHelp();

  private:
    std::unique_ptr<CVDelegateSubscriberWorkstationLocked> m_lockWatcher;
    CSecStr m_message;
    fw::Font m_titleFont;
    int m_mode;
};

class CUnlockSuccessDlg : public CSecureDialog {
  public:
    explicit CUnlockSuccessDlg(HWND parent);

  protected:
    BOOL OnInitDialog() override;

  private:
    std::unique_ptr<CVDelegateSubscriberWorkstationLocked> m_lockWatcher;
    fw::Font m_titleFont;
};

class CUnlockInitToolDlg : public CVDetectCardRemovedDlg {
  public:
    CUnlockInitToolDlg(HWND parent, const wchar_t* readerName);

  protected:
    BOOL OnInitDialog() override;

  private:
    std::unique_ptr<CVDelegateSubscriberWorkstationLocked> m_lockWatcher;
    fw::Font m_titleFont;
};
