// What the PIN prompt and the three PIN-pad prompts share: the template comes from the resource
// library and creation is retried without the parent (a parent of another process, or one that
// is gone, must not prevent the prompt); the site banner; help topic 1015; and closing on
// workstation lock as well as on card removal.
#pragma once
#include <memory>
#include "dialogs/base/detect_card_removed_dlg_win.h"
#include "framework/gdi_win.h"

class CPromptDlg : public CVDetectCardRemovedDlg {
public:
    // className names the dialog in the log ("CEnterPinDlg"...); iconId is the icon beside the
    // prompt text (IDI_CARD, IDI_KEYPAD).
    CPromptDlg(const wchar_t* className, UINT templateId, UINT iconId, HWND parent, const wchar_t* readerName);
    ~CPromptDlg() override;

    INT_PTR DoModal() override;

protected:
    BOOL OnInitDialog() override;
    bool OnCommand(WORD id, WORD code, HWND control) override;
    void OnHelp() override { OnContextualHelp(); }
    virtual void OnContextualHelp();
    // Shows the banner of "SecurityModuleMW.AuthenticationDialog.BannerHiRes" in place of the
    // template's placeholder, when that file can be loaded.
    void TryToInsertBitmap();
    // Brings the prompt in front of everything, as the user must answer it now.
    void BringToFront();

    const wchar_t* m_className;
    UINT m_iconId;

private:
    bool GetBrandingBitmaps(std::wstring& path);
    void MakeRoomForBanner(HWND placeholder);
    void HideHelpButton();

    fw::Bitmap m_banner;
    std::unique_ptr<CVDelegateSubscriberWorkstationLocked> m_lockWatcher;
};
