// The PIN rules of a card and how a candidate PIN fares against each of them. This is the one
// place that decides PIN rules; the rule list only shows the outcome. Portable.
#pragma once
#include <cstdint>
#include "services/secstr.h"

namespace pinrules {

constexpr uint32_t kNoLengthRule = 0xFFFFFFFFu;

// The rules as the rule list applies them (the caller's record, read once).
struct RuleSet {
    uint32_t minLength = kNoLengthRule;
    uint32_t maxLength = kNoLengthRule;
    bool weakRule = false;     // weak PINs are refused
    bool samePinRule = false;  // the new PIN must differ from the current one
    bool alphaRule = false;    // digits only
};

// From the six fields of the caller's record (the weak-PIN field says "allowed", hence !).
RuleSet MakeRuleSet(int preventAlpha, int allowWeak, int preventSame, uint32_t minLength, uint32_t maxLength);

// A PIN whose character codes, on their low byte, step by one constant (mod 256), or that has
// fewer than 3 characters: 1111, 1234, 4321, 2468, "aceg".
bool IsPinWeak(const CSecStr& pin);
// A PIN with any character other than '0'..'9'. The empty PIN passes.
bool IsAlphaPinWeak(const CSecStr& pin);

// The rows of the rule list, in the order in which they stack in its box; the confirmation row
// is always last and always shown.
enum Row { kMinLength, kMaxLength, kWeakPin, kSamePin, kAlphabetic, kConfirmation, kRowCount };

// The order in which the rows are judged and updated on each change (not the stacking order).
constexpr Row kEvaluationOrder[kRowCount] = {kMinLength, kMaxLength, kSamePin,
                                             kWeakPin,   kAlphabetic, kConfirmation};

// Whether rules has the rule of row (a row shows exactly when its rule exists).
bool IsRowShown(const RuleSet& rules, Row row);

struct RowOutcome {
    bool visible = false;
    bool met = false;
};

struct Outcome {
    RowOutcome rows[kRowCount];  // by Row
    bool allMet = true;  // every shown rule holds
};

// candidate drives the length, weak and alphabetic rules; newPin the same-PIN and confirmation
// comparisons (both are the new PIN as typed).
Outcome Evaluate(const RuleSet& rules, const CSecStr& current, const CSecStr& candidate, const CSecStr& newPin,
                 const CSecStr& confirm);

// OK of the PIN change: the rules hold, and the current PIN is there when it is asked for.
bool IsChangeAcceptable(bool rulesMet, bool requireCurrentPin, bool currentEmpty);

}  // namespace pinrules
