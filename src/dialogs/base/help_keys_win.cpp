#include "dialogs/base/help_keys_win.h"

bool IsHelpKeyRelease(HWND dialog, const MSG& msg) {
    return msg.message == WM_KEYUP && msg.wParam == VK_F1 && dialog &&
           (msg.hwnd == dialog || IsChild(dialog, msg.hwnd));
}

bool IsCaptionHelpClick(UINT message, WPARAM wParam) {
    return message == WM_NCLBUTTONDOWN && wParam == HTHELP;
}
