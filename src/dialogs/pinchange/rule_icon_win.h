// CRuleIcon: the met/unmet icon of a rule row, attached to the row's icon static. The icon
// changes as the user types; the static's own STM_SETICON measures the icon, resizes itself and
// draws at once, which costs most of a keystroke under Wine. Here a change only marks the
// control for repainting, and the paint draws the icon the static would.
#pragma once
#include "framework/control_win.h"

class CRuleIcon : public fw::Control {
protected:
    LRESULT WndProc(UINT message, WPARAM wParam, LPARAM lParam) override;

private:
    void Paint(HDC dc);

    HICON m_icon = nullptr;
};
