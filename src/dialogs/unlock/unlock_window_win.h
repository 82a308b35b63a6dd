// What every window of the unlock shares: the bold title and coming to the top
// of every other window when it opens (the unlock runs on behalf of a background component).
#pragma once
#include <windows.h>

#include "framework/gdi_win.h"

namespace unlock {

// Gives control id of dialog a bold copy of its font; font owns the copy.
void SetBoldTitle(HWND dialog, int id, fw::Font& font);
// Foreground, and topmost without moving or resizing.
void BringToTop(HWND dialog);
// Moves control id of dialog by dy pixels (up when negative) without resizing; a missing
// control is ignored.
void MoveItem(HWND dialog, int id, int dx, int dy);
// Changes the window's height by dy pixels, keeping its place and width.
void GrowWindow(HWND window, int dy);

} // namespace unlock
