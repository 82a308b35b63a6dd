// The texts of the unlock dialogs: challenges and codes grouped for reading out, the response
// as the user may type it, the blocked-card notice's height, and what a card result means.
#include <gtest/gtest.h>

#include "card/card_result.h"
#include "dialogs/unlock/unlock_text.h"

namespace {

std::wstring Text(const CSecStr& s) {
    return s.GetString();
}

TEST(UnlockText, ChallengesAndCodesAreGroupedByFour) {
    const struct {
        const wchar_t* raw;
        const wchar_t* grouped;   // the unlock dialog and the unlock code display
        const wchar_t* resetForm; // the reset form: four groups at most
    } cases[] = {
        {L"", L"", L""},
        {L"ABC", L"ABC", L"ABC"},
        {L"ABCD", L"ABCD", L"ABCD"},
        {L"0123456789", L"0123-4567-89", L"0123-4567-89"},
        {L"0123456789ABCDEF", L"0123-4567-89AB-CDEF", L"0123-4567-89AB-CDEF"},
        {L"0123456789ABCDEF01", L"0123-4567-89AB-CDEF-01", L"0123-4567-89AB-CDEF"},
        {L"0123456789ABCDEF0123", L"0123-4567-89AB-CDEF-0123", L"0123-4567-89AB-CDEF"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.raw);
        EXPECT_EQ(Text(unlock::GroupByFour(c.raw)), c.grouped);
        EXPECT_EQ(Text(unlock::FirstFourGroups(c.raw)), c.resetForm);
    }
}

TEST(UnlockText, AResponseIsSixteenHexDigitsWithOptionalDashes) {
    const struct {
        const wchar_t* typed;
        bool wellFormed;
    } cases[] = {
        {L"0123456789ABCDEF", true},
        {L"0123-4567-89ab-cdef", true},
        {L"-0123456789abcDEF--", true},
        {L"0123456789ABCDE", false},    // 15 digits
        {L"0123456789ABCDEF0", false},  // 17
        {L"0123-4567-89AB-CDE", false}, // 15 once the dashes are gone
        {L"0123456789ABCDEG", false},
        {L"0123 4567 89AB CDEF", false},
        {L"0123456789ABCDE\x0661", false}, // an Arabic-Indic one is not a digit here
        {L"", false},
        {L"----------------", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.typed);
        EXPECT_EQ(unlock::IsResponseWellFormed(c.typed), c.wellFormed);
    }
    EXPECT_EQ(Text(unlock::WithoutDashes(L"-01-23--45-")), L"012345");
}

TEST(UnlockText, TheNoticeGetsOneLineMoreThanItsTextNeeds) {
    const int line = 13, width = 200;
    EXPECT_EQ(unlock::MessageHeight(0, line, width), line);         // empty
    EXPECT_EQ(unlock::MessageHeight(width - 1, line, width), line); // narrower than the control
    EXPECT_EQ(unlock::MessageHeight(width, line, width), 2 * line); // exactly one width
    EXPECT_EQ(unlock::MessageHeight(2 * width - 1, line, width), 2 * line);
    EXPECT_EQ(unlock::MessageHeight(2 * width, line, width), 3 * line); // twice the width
    EXPECT_EQ(unlock::MessageHeight(5000, line, 0), line);              // no width: no division
}

TEST(UnlockText, OnlyAWrongCodeHasItsOwnMessage) {
    EXPECT_EQ(unlock::OutcomeOf(CV_OBJ_API_OK), unlock::Outcome::Unlocked);
    EXPECT_EQ(unlock::OutcomeOf(CV_OBJ_API_WRONG_CODE), unlock::Outcome::WrongCode);
    for (uint32_t other : {CV_OBJ_API_FAILED, CV_OBJ_API_NO_CARD, CV_OBJ_API_PIN_BLOCKED,
                           CV_OBJ_API_INVALID_PARAMETER, CV_OBJ_API_ACCESS_DENIED})
        EXPECT_EQ(unlock::OutcomeOf(other), unlock::Outcome::Failed) << other;
}

} // namespace
