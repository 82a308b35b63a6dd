// CVPoliciesDlg::Impl: the live rule list under the PIN fields of the PIN change and the unlock.
// Each rule is a row (a text and a met/unmet icon); pin_rules.h decides which rows show, in which
// order, and whether each is met; this list only shows that. Hosts embed it as a child; other
// components may too, through the exported handle CVPoliciesDlg.
#pragma once
#include "cvpingui.h"
#include "cvpingui_policies_dlg.h"
#include "dialogs/base/base_dialog_win.h"
#include "dialogs/pinchange/pin_rules.h"
#include "dialogs/pinchange/rule_box_layout.h"
#include "dialogs/pinchange/rule_icon_win.h"

class CVPoliciesDlg::Impl : public CBaseDialog::Impl {
public:
    // rules may be null (only the confirmation row then). Margins in pixels, for the layout.
    Impl(const PwdRuleArgs* rules, int mode, const RECT* position, HWND parent, int nTopMargin, int nLeftShift,
         int nRowSpacing);
    ~Impl() override;

    // Creates the list as a hidden child of parent; non-zero on success.
    int LocCreate(HWND parent);

    // Updates every row and returns whether every shown rule holds. Wipes the four strings.
    bool VerifyAndUpdatePolicies(CSecStr current, CSecStr candidate, CSecStr newPin, CSecStr confirm);
    // The same without copies of the PINs, for hosts that wipe their own strings.
    bool VerifyAndUpdatePoliciesInPlace(const CSecStr& current, const CSecStr& candidate, const CSecStr& newPin,
                                        const CSecStr& confirm);

protected:
    BOOL OnInitDialog() override;

private:
    void ShowRow(pinrules::Row row, pinrules::RowOutcome outcome);
    void SetPolicyIcon(HWND iconControl, HICON icon);
    void PutPoliciesInBox();

    HICON m_metIcon;
    HICON m_unmetIcon;
    int nTopMargin;
    int nLeftShift;
    int nRowSpacing;
    pinrules::RuleSet m_rules;
    // The row controls by row, found when the window is created.
    HWND m_rowText[pinrules::kRowCount] = {};
    HWND m_rowIcon[pinrules::kRowCount] = {};
    HWND m_box = nullptr;
    // Draw the icons; an icon control they could not attach to stays a plain static.
    CRuleIcon m_rowIconControl[pinrules::kRowCount];
};
