// Where the caps-lock balloon goes: above the edit, or below it when that would be too close to
// the top of the screen, and never past the screen's left or right edge.
#pragma once

struct ScreenRect {
    int left, top, right, bottom;
};
struct ScreenPoint {
    int x, y;
};

// y = edit top - balloon height + 4, or edit bottom - 8 when that y is below 55;
// x = edit left clamped to [0, screenWidth - balloonWidth].
ScreenPoint PlaceCapsLockBalloon(const ScreenRect& edit, int balloonWidth, int balloonHeight, int screenWidth);
