// The card's stored unlock code, shown once for the user to note: CDisplayUCChild holds the code
// (read-only) and the "never show again" box; CDisplayUnlockCodeDlg is the window around it, and
// ends with OK only when that box is ticked, so that its caller removes the code from the card.
#pragma once
#include <memory>

#include "dialogs/base/base_dialog_win.h"
#include "dialogs/base/detect_card_removed_dlg_win.h"

class CDisplayUCChild : public CBaseDialog::Impl {
  public:
    CDisplayUCChild(int mode, const RECT* position, const CSecStr& code, HWND parent);
    ~CDisplayUCChild() override;

    // Creates the form as a child of parent; non-zero on success.
    int LocCreate(HWND parent);
    // True when the box is ticked, and when there is no box to tick.
    int IsNeverDisplayChecked();

  protected:
    void DoDataExchange(fw::DataExchange& dx) override;
    void OnDestroy() override;

  private:
    CSecStr m_code;
};

class CDisplayUnlockCodeDlg : public CVDetectCardRemovedDlg {
  public:
    // The window property on the parent that names the open display while it is shown.
    static constexpr const wchar_t* kWindowProperty = L"DisplayUCodeWnd";

    CDisplayUnlockCodeDlg(HWND parent, const wchar_t* code, const wchar_t* readerName, int mode);
    ~CDisplayUnlockCodeDlg() override;

  protected:
    BOOL OnInitDialog() override;
    void OnOK() override;
    void OnDestroy() override;

  private:
    std::unique_ptr<CDisplayUCChild> m_pDisplayUCChild;
    CSecStr m_code;
    int m_mode;
};
