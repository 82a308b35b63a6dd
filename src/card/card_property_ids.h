// Property ids the card layer reads and writes through the security module.
#pragma once
#include <cstdint>

enum CardPropertyId : int32_t {
    // Of the card context.
    PROPERTY_CARD_IDENTIFIER = 0,      // bytes: the serial number
    PROPERTY_CARD_IS_CAC = 3,          // byte, non-zero for a CAC card
    PROPERTY_CARD_IS_PIV = 4,          // byte, non-zero for a PIV card
    PROPERTY_TRANSACTION_TIMEOUT = 18, // unsigned 32-bit
    // Of the user PIN credential.
    PROPERTY_PIN_MIN_LENGTH = 25,  // byte
    PROPERTY_PIN_MAX_LENGTH = 26,  // byte
    PROPERTY_PIN_WEAK_CHECK = 30,  // byte, 1 when active
    PROPERTY_PIN_UNLOCK_CODE = 33, // bytes: the backup unlock code
};
