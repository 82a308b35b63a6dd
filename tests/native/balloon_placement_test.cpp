#include "dialogs/base/balloon_placement.h"

#include <gtest/gtest.h>

namespace {

TEST(BalloonPlacement, AboveTheEditUnlessTooCloseToTheTopAndInsideTheScreen) {
    const struct {
        const char* what;
        ScreenRect edit;
        int width, height, screenWidth;
        ScreenPoint expected;
    } rows[] = {
        {"room above", {100, 300, 300, 320}, 200, 80, 1024, {100, 224}},
        {"y exactly 55 stays above", {100, 131, 300, 151}, 200, 80, 1024, {100, 55}},
        {"y 54 goes below", {100, 130, 300, 150}, 200, 80, 1024, {100, 142}},
        {"near the top", {100, 10, 300, 30}, 200, 80, 1024, {100, 22}},
        {"past the right edge", {900, 300, 1000, 320}, 200, 80, 1024, {824, 224}},
        {"past the left edge", {-50, 300, 100, 320}, 200, 80, 1024, {0, 224}},
        {"wider than the screen", {300, 300, 400, 320}, 1500, 80, 1024, {0, 224}},
        {"extreme coordinates", {2147483647, -2147483647, 0, -2147483647}, 10, 10, 100, {90, -2147483647}},
    };
    for (const auto& row : rows) {
        ScreenPoint p = PlaceCapsLockBalloon(row.edit, row.width, row.height, row.screenWidth);
        EXPECT_EQ(p.x, row.expected.x) << row.what;
        EXPECT_EQ(p.y, row.expected.y) << row.what;
    }
}

} // namespace
