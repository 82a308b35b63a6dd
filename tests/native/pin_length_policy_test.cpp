#include "dialogs/pin/pin_length_policy.h"

#include <gtest/gtest.h>

namespace {

TEST(PinLengthPolicy, OnlyTheLengthAndThePoliciesDecide) {
    const unsigned kMin = 4, kMax = 8;
    const struct {
        unsigned length;
        bool preventSmall, enableLarge, accepted;
    } rows[] = {
        {0, false, false, true}, {3, false, false, true}, {8, false, false, true}, {9, false, false, false},
        {3, true, false, false}, {4, true, false, true},  {0, true, false, false}, {20, false, true, true},
        {9, false, true, true},  {3, true, true, false},  {4, true, true, true},   {200, true, true, true},
        {9, true, false, false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(IsPinLengthAccepted(row.length, kMin, kMax, row.preventSmall, row.enableLarge),
                  row.accepted)
            << "length " << row.length << " preventSmall " << row.preventSmall << " enableLarge "
            << row.enableLarge;
}

} // namespace
