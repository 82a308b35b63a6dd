// When the PIN prompt's OK button is enabled: only the PIN's length counts, never its characters.
#pragma once

// preventSmall: "Corvana.PINPolicies.PreventSmallPINEntry" is 1 (the minimum applies);
// enableLarge: "Corvana.PINPolicies.EnableLargePINEntry" is 1 (the maximum does not apply).
bool IsPinLengthAccepted(unsigned length, unsigned minPinLength, unsigned maxPinLength,
                         bool preventSmall, bool enableLarge);
