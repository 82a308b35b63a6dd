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

Outcome Evaluate(const RuleSet& rules, const CSecStr& current, const CSecStr& candidate, const CSecStr& newPin,
                 const CSecStr& confirm) {
    Outcome out;
    auto set = [&](Row row, bool active, bool met) {
        out.rows[row].visible = active;
        out.rows[row].met = active && met;
        if (active && !met) out.allMet = false;
    };
    const uint32_t length = static_cast<uint32_t>(candidate.GetLength());
    set(kMinLength, rules.minLength != kNoLengthRule, length >= rules.minLength);
    set(kMaxLength, rules.maxLength != kNoLengthRule, length <= rules.maxLength);
    set(kSamePin, rules.samePinRule, newPin.Compare(current) != 0);
    set(kWeakPin, rules.weakRule, !IsPinWeak(candidate));
    set(kAlphabetic, rules.alphaRule, !IsAlphaPinWeak(candidate));
    set(kConfirmation, true, newPin.Compare(confirm) == 0);
    return out;
}

bool IsChangeAcceptable(bool rulesMet, bool requireCurrentPin, bool currentEmpty) {
    return rulesMet && !(requireCurrentPin && currentEmpty);
}

}  // namespace pinrules
