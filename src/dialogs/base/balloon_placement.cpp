#include "dialogs/base/balloon_placement.h"

namespace {
// A balloon whose top would be above this y is too close to the top of the screen.
constexpr long long kMinTop = 55;

int ToInt(long long value) {
    return value < -0x7fffffffLL ? -0x7fffffff
                                 : (value > 0x7fffffffLL ? 0x7fffffff : static_cast<int>(value));
}
} // namespace

ScreenPoint PlaceCapsLockBalloon(const ScreenRect& edit, int balloonWidth, int balloonHeight,
                                 int screenWidth) {
    // 64-bit arithmetic: window rectangles of hidden or off-screen windows can be extreme.
    long long y = static_cast<long long>(edit.top) - balloonHeight + 4;
    if (y < kMinTop) y = static_cast<long long>(edit.bottom) - 8;
    long long maxX = static_cast<long long>(screenWidth) - balloonWidth;
    long long x = edit.left;
    if (x > maxX) x = maxX;
    if (x < 0) x = 0;
    return ScreenPoint{ToInt(x), ToInt(y)};
}
