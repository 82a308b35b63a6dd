#include "dialogs/pin/pin_length_policy.h"

bool IsPinLengthAccepted(unsigned length, unsigned minPinLength, unsigned maxPinLength, bool preventSmall,
                         bool enableLarge) {
    if (preventSmall && length < minPinLength) return false;
    if (!enableLarge && length > maxPinLength) return false;
    return true;
}
