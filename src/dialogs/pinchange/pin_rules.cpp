#include "dialogs/pinchange/pin_rules.h"

namespace pinrules {

RuleSet MakeRuleSet(int preventAlpha, int allowWeak, int preventSame, uint32_t minLength, uint32_t maxLength) {
    RuleSet rules;
    rules.minLength = minLength;
    rules.maxLength = maxLength;
    rules.weakRule = allowWeak == 0;
    rules.alphaRule = preventAlpha != 0;
    rules.samePinRule = preventSame != 0;
    return rules;
}

bool IsPinWeak(const CSecStr& pin) {
    const int length = pin.GetLength();
    if (length < 3) return true;
    // Unsigned 8-bit arithmetic wraps, so 4321 steps by 255 and 9012 would step by 1 then 247.
    auto step = [&](int i) { return static_cast<uint8_t>(static_cast<uint8_t>(pin[i]) - static_cast<uint8_t>(pin[i - 1])); };
    const uint8_t first = step(1);
    for (int i = 2; i < length; ++i)
        if (step(i) != first) return false;
    return true;
}

bool IsAlphaPinWeak(const CSecStr& pin) {
    for (int i = 0; i < pin.GetLength(); ++i)
        if (pin[i] < L'0' || pin[i] > L'9') return true;
    return false;
}

bool IsRowShown(const RuleSet& rules, Row row) {
    switch (row) {
    case kMinLength: return rules.minLength != kNoLengthRule;
    case kMaxLength: return rules.maxLength != kNoLengthRule;
    case kWeakPin: return rules.weakRule;
    case kSamePin: return rules.samePinRule;
    case kAlphabetic: return rules.alphaRule;
    default: return true;
    }
}

Outcome Evaluate(const RuleSet& rules, const CSecStr& current, const CSecStr& candidate, const CSecStr& newPin,
                 const CSecStr& confirm) {
    const uint32_t length = static_cast<uint32_t>(candidate.GetLength());
    bool met[kRowCount];
    met[kMinLength] = length >= rules.minLength;
    met[kMaxLength] = length <= rules.maxLength;
    met[kWeakPin] = !IsPinWeak(candidate);
    met[kSamePin] = newPin.Compare(current) != 0;
    met[kAlphabetic] = !IsAlphaPinWeak(candidate);
    met[kConfirmation] = newPin.Compare(confirm) == 0;
    Outcome out;
    for (Row row : kEvaluationOrder) {
        const bool shown = IsRowShown(rules, row);
        out.rows[row] = {shown, shown && met[row]};
        if (shown && !met[row]) out.allMet = false;
    }
    return out;
}

bool IsChangeAcceptable(bool rulesMet, bool requireCurrentPin, bool currentEmpty) {
    return rulesMet && !(requireCurrentPin && currentEmpty);
}

}  // namespace pinrules
