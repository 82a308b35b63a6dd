// The PIN rules: which PINs break which rule, which rows show, and where the rows go.
#include <gtest/gtest.h>
#include <string>
#include "dialogs/pinchange/pin_rules.h"
#include "dialogs/pinchange/rule_box_layout.h"

using namespace pinrules;

TEST(PinRules, WeakPinsAreArithmeticProgressionsOnTheLowByte) {
    struct Case {
        const wchar_t* pin;
        bool weak;
    } cases[] = {
        {L"", true},        {L"7", true},       {L"93", true},      // too short to judge: weak
        {L"0000", true},    {L"1111", true},    {L"1234", true},    {L"4321", true},  // step 0, 1, 255
        {L"9876", true},    {L"2468", true},    {L"1357", true},    {L"97531", true}, {L"aceg", true},
        {L"1235", false},   {L"1122", false},   {L"7890", false},   {L"1243", false}, {L"2580", false},
        {L"9012", false},                                        // no wrap from 9 to 0 in characters
        {L"\u00fe\u00ff\u0100", true},                           // 0xFE, 0xFF, 0x00: wraps mod 256
        {L"\u0141\u0242\u0343", true},                           // differ only above the low byte
        {L"1\u01323", true},                                     // 0x31, 0x132, 0x33 steps by 1
        {L"123456789", true},
    };
    for (const Case& c : cases) EXPECT_EQ(IsPinWeak(c.pin), c.weak) << testing::PrintToString(std::wstring(c.pin));
}

TEST(PinRules, AlphabeticRuleAcceptsOnlyDecimalDigits) {
    EXPECT_FALSE(IsAlphaPinWeak(L""));
    EXPECT_FALSE(IsAlphaPinWeak(L"0123456789"));
    for (const wchar_t* pin : {L"12a4", L"12 4", L"A", L"\u0661\u0662", L"12/4", L"12:4", L"\uff11"})
        EXPECT_TRUE(IsAlphaPinWeak(pin)) << testing::PrintToString(std::wstring(pin));
}

namespace {
// The rows in stacking order (minimum, maximum, weak, same PIN, alphabetic, confirmation): M met,
// U unmet, - hidden (? hidden yet met); then "ok" when every shown rule holds.
std::string Rows(const Outcome& out) {
    std::string text;
    for (const RowOutcome& row : out.rows)
        text += row.visible ? (row.met ? 'M' : 'U') : (row.met ? '?' : '-');
    return text + (out.allMet ? " ok" : "");
}
}  // namespace

TEST(PinRules, EveryRowOfTheRecordIsShownAndJudgedWithoutEarlyExit) {
    const RuleSet all = MakeRuleSet(1, 0, 1, 4, 8), upTo6 = MakeRuleSet(1, 0, 1, 4, 6), none;
    const RuleSet zeroMin = MakeRuleSet(0, 1, 0, 0, kNoLengthRule);
    const RuleSet weakAllowed = MakeRuleSet(0, 1, 0, kNoLengthRule, kNoLengthRule);
    const RuleSet samePin = MakeRuleSet(0, 1, 1, kNoLengthRule, kNoLengthRule);
    const struct {
        RuleSet rules;
        const wchar_t *current, *candidate, *newPin, *confirm;
        const char* rows;
    } cases[] = {
        {all, L"1357", L"", L"", L"", "UMUMMM"}, // empty: too short and weak at once
        {all, L"1357", L"1357", L"1357", L"1358", "MMUUMU"},
        {all, L"1357", L"73a91", L"73a91", L"73a91", "MMMMUM"},
        {all, L"1357", L"739182", L"739182", L"739182", "MMMMMM ok"},
        {all, L"", L"739182461", L"739182461", L"739182461", "MUMMMM"},
        // The candidate drives the length, weak and alphabetic rows, the new PIN the same-PIN and
        // confirmation rows: fields that disagree catch a rule reading the wrong one.
        {upTo6, L"2468", L"2468", L"1397", L"1397", "MMUMMM"},
        {upTo6, L"2468", L"1397", L"2468", L"2468", "MMMUMM"},
        {upTo6, L"", L"1397", L"25", L"25", "MMMMMM ok"},
        {upTo6, L"", L"139752", L"2580741", L"2580741", "MMMMMM ok"},
        {upTo6, L"", L"2580741", L"1397", L"1397", "MUMMMM"},
        {upTo6, L"", L"1397", L"1234", L"1234", "MMMMMM ok"},
        {upTo6, L"", L"1234", L"1397", L"1397", "MMUMMM"},
        {upTo6, L"", L"1397", L"13a7", L"13a7", "MMMMMM ok"},
        {upTo6, L"", L"1397", L"1397", L"1398", "MMMMMU"},
        {upTo6, L"", L"1398", L"1397", L"1397", "MMMMMM ok"},
        // No record at all: only the confirmation row, met exactly when both fields agree.
        {none, L"", L"", L"", L"", "-----M ok"},
        {none, L"", L"12", L"12", L"13", "-----U"},
        // A minimum of 0 is a rule that always holds; only the marker hides a length row.
        {zeroMin, L"", L"", L"", L"", "M----M ok"},
        {weakAllowed, L"", L"1111", L"1111", L"1111", "-----M ok"},
        // The same PIN is refused case-sensitively, and only with its rule.
        {weakAllowed, L"abcd", L"abcd", L"abcd", L"abcd", "-----M ok"},
        {samePin, L"abcd", L"abcd", L"abcd", L"abcd", "---U-M"},
        {samePin, L"abcd", L"ABCD", L"ABCD", L"ABCD", "---M-M ok"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Rows(Evaluate(c.rules, c.current, c.candidate, c.newPin, c.confirm)), c.rows)
            << testing::PrintToString(std::wstring(c.candidate)) << " / "
            << testing::PrintToString(std::wstring(c.newPin));
}

// The confirmation row always has its place, even when its row is marked hidden.
TEST(RuleBoxLayout, ShownRowsAndTheConfirmationStackAndTheBoxShrinksByWhatIsLeft) {
    RowGeometry rows[kRowCount];
    for (RowGeometry& r : rows) r = {false, 20, 13, 4};
    rows[kMinLength].shown = true;
    rows[kAlphabetic].shown = true;
    rows[kAlphabetic].textHeight = 26;  // a text on two lines
    BoxLayout layout = LayOutRuleBox(/*top*/ 10, /*height*/ 200, rows, /*margin*/ 15, /*shift*/ 3, /*spacing*/ 6);

    // 200 - 15 - (2 + 2) * 6 - (13 + 26) - 13
    EXPECT_EQ(layout.shrinkBy, 109);
    const RowPlacement& min = layout.rows[kMinLength];
    EXPECT_TRUE(min.move);
    EXPECT_EQ(min.textY, 10 + 15 + 6);
    EXPECT_EQ(min.iconY, min.textY - 1);
    EXPECT_EQ(min.textX, 23);
    EXPECT_EQ(min.iconX, 7);
    EXPECT_EQ(layout.rows[kAlphabetic].textY, min.textY + 6 + 13);
    EXPECT_TRUE(layout.rows[kConfirmation].move);
    EXPECT_EQ(layout.rows[kConfirmation].textY, layout.rows[kAlphabetic].textY + 6 + 26);
    for (int hidden : {kMaxLength, kWeakPin, kSamePin}) EXPECT_FALSE(layout.rows[hidden].move);
}
