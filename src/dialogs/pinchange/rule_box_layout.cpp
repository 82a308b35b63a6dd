#include "dialogs/pinchange/rule_box_layout.h"

namespace pinrules {

BoxLayout LayOutRuleBox(int boxTop, int boxHeight, const RowGeometry (&rows)[kRowCount], int topMargin,
                        int leftShift, int rowSpacing) {
    BoxLayout layout;
    int shown = 0;
    int heights = 0;
    for (int i = 0; i < kConfirmation; ++i) {
        if (!rows[i].shown) continue;
        ++shown;
        heights += rows[i].textHeight;
    }
    const int confirmHeight = rows[kConfirmation].textHeight;
    layout.shrinkBy = boxHeight - topMargin - (shown + 2) * rowSpacing - heights - confirmHeight;

    int y = boxTop + topMargin + rowSpacing;
    for (int i = 0; i < kRowCount; ++i) {
        if (i != kConfirmation && !rows[i].shown) continue;
        RowPlacement& p = layout.rows[i];
        p.move = true;
        p.textX = rows[i].textLeft + leftShift;
        p.textY = y;
        p.iconX = rows[i].iconLeft + leftShift;
        p.iconY = y - 1;  // a 16-pixel icon centred on a line of text
        y += rowSpacing + rows[i].textHeight;
    }
    return layout;
}

}  // namespace pinrules
