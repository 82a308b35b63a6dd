#include "dialogs/unlock/unlock_window_win.h"

#include "framework/dialog_win.h"

namespace unlock {

void SetBoldTitle(HWND dialog, int id, fw::Font& font) {
    HWND title = GetDlgItem(dialog, id);
    if (!title) return;
    LOGFONTW lf{};
    HFONT current = reinterpret_cast<HFONT>(SendMessageW(title, WM_GETFONT, 0, 0));
    if (!current || !GetObjectW(current, sizeof lf, &lf)) return;
    lf.lfWeight = FW_BOLD;
    lf.lfWidth = 0;
    font.Reset(CreateFontIndirectW(&lf));
    if (font) SendMessageW(title, WM_SETFONT, reinterpret_cast<WPARAM>(font.Get()), TRUE);
}

void BringToTop(HWND dialog) {
    SetForegroundWindow(dialog);
    SetWindowPos(dialog, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
}

void MoveItem(HWND dialog, int id, int dx, int dy) {
    HWND item = GetDlgItem(dialog, id);
    if (!item) return;
    const RECT r = fw::ChildRect(dialog, item);
    SetWindowPos(item, nullptr, r.left + dx, r.top + dy, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

void GrowWindow(HWND window, int dy) {
    RECT r;
    GetWindowRect(window, &r);
    SetWindowPos(window, nullptr, 0, 0, r.right - r.left, r.bottom - r.top + dy,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
}

} // namespace unlock
