// CCMLockedDlg: the notice that the card manager has blocked the card, with the administrator's
// message from the settings; the window's height follows the message's length. Closes when the
// card is removed.
#pragma once
#include "dialogs/base/detect_card_removed_dlg_win.h"

class CCMLockedDlg : public CVDetectCardRemovedDlg {
  public:
    CCMLockedDlg(HWND parent, const wchar_t* readerName);

  protected:
    BOOL OnInitDialog() override;
    bool PreTranslateMessage(const MSG& msg) override;
    void DoDataExchange(fw::DataExchange& dx) override;
    // Fits the message control to its text, OK below it, and the window around both.
    void AdjustWindow();
    void OnContextualHelp();

  private:
    CSecStr m_message;
};
