// Where the rows of the rule list go: the shown rows stack from the top of the box, one
// spacing apart, and the box (with the list) shrinks by the room the hidden rows leave. Portable.
#pragma once
#include "dialogs/pinchange/pin_rules.h"

namespace pinrules {

// One row's geometry before the layout, by Row.
struct RowGeometry {
    bool shown = false;
    int textLeft = 0;
    int textHeight = 0;
    int iconLeft = 0;
};

struct RowPlacement {
    bool move = false;  // hidden rows stay where they are
    int textX = 0, textY = 0;
    int iconX = 0, iconY = 0;
};

struct BoxLayout {
    RowPlacement rows[kRowCount];
    int shrinkBy = 0;  // height to take off the list and the box (negative: they grow)
};

// rows[kConfirmation].shown is ignored: that row is always shown. Pixels, in the list's
// client coordinates.
BoxLayout LayOutRuleBox(int boxTop, int boxHeight, const RowGeometry (&rows)[kRowCount], int topMargin,
                        int leftShift, int rowSpacing);

}  // namespace pinrules
