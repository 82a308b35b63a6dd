/*
 * cvpingui_change_pin_dlg.h - CChangePINDialog, the PIN change form of cv.corvana.gui.pin.dll
 * (current, new and confirmation PIN over the live rule list) for C++ callers built with
 * mingw-w64 (see cvpingui_base_dialog.h for how the exported classes behave).
 *
 * A caller embeds the form in a window of its own: construct it, LocCreate it as a child of
 * that window, show it. The form enables the caller's OK button exactly while the PINs may be
 * accepted. To take the PINs, call GetChangePINInfoFromUser_s (cvpingui.h) with the window as
 * hParent: nothing is shown, and the call fails when the form's PINs break a rule. Deleting the
 * handle destroys the form and wipes the PINs it held.
 */
#ifndef CVPINGUI_CHANGE_PIN_DLG_H
#define CVPINGUI_CHANGE_PIN_DLG_H

#include "cvpingui.h"
#include "cvpingui_base_dialog.h"

class CVPINGUI_CLASS CChangePINDialog : public CBaseDialog {
public:
    class Impl; /* the form inside the library */

    /* unused: no effect. mode: as CBaseDialog's colored. bRequireCurrentPIN: the current-PIN field
     * is shown and must be filled. position: where the form goes in its parent. rules: copied;
     * may be null (then only the confirmation must match). okButton (may be null) is enabled
     * exactly when the PINs may be accepted. The margins (pixels) place the rule list's rows.
     * callback(context) runs every periodMs while the form is open (null or 0: never). */
    CChangePINDialog(int unused, int mode, bool bRequireCurrentPIN, const RECT* position, const PwdRuleArgs* rules,
                     HWND okButton, HWND parent, int nTopMargin, int nLeftShift, int nRowSpacing,
                     TimerCallback callback, void* context, int periodMs);

    /* Creates the form as a child window of parent; non-zero on success. */
    int LocCreate(HWND parent);
    /* Wipes and empties the PINs the form kept. */
    void EraseAllPinBuffers();
    /* Hides the Caps Lock balloons of the three fields. */
    void ResetToolTip();
};

#endif /* CVPINGUI_CHANGE_PIN_DLG_H */
