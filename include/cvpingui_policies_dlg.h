/*
 * cvpingui_policies_dlg.h - CVPoliciesDlg, the live rule list of cv.corvana.gui.pin.dll (one row
 * per rule of a card, met or not) for C++ callers built with mingw-w64 (see
 * cvpingui_base_dialog.h for how the exported classes behave).
 */
#ifndef CVPINGUI_POLICIES_DLG_H
#define CVPINGUI_POLICIES_DLG_H

#include "cvpingui.h"
#include "cvpingui_base_dialog.h"

class CVPINGUI_CLASS CVPoliciesDlg : public CBaseDialog {
public:
    class Impl; /* the rule list inside the library */

    /* rules may be null (then only the confirmation row is shown). mode: as CBaseDialog's
     * colored. position: where the list goes in its parent. The margins are in pixels. */
    CVPoliciesDlg(const PwdRuleArgs* rules, int mode, const RECT* position, HWND parent, int nTopMargin,
                  int nLeftShift, int nRowSpacing);

    /* Creates the list as a hidden child window of parent; non-zero on success. */
    int LocCreate(HWND parent);

    /* Shows every rule's outcome for these texts (null reads as empty) and returns whether every
     * shown rule holds. candidate drives the length, weak and digits-only rules; newPin the
     * same-PIN and confirmation rules. The library's copies are wiped before it returns; the
     * caller's own buffers stay the caller's to wipe. */
    bool VerifyAndUpdatePolicies(const wchar_t* current, const wchar_t* candidate, const wchar_t* newPin,
                                 const wchar_t* confirm);
};

#endif /* CVPINGUI_POLICIES_DLG_H */
