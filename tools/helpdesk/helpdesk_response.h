// What the help desk answers to a card's unblock challenge: the challenge encrypted with the
// card's administrator key (3DES-EDE, one block), as text to read out to the user.
#pragma once
#include <string>

#include "crypto.h"

namespace helpdesk {

enum class ResponseStatus { Ok, BadInput, CipherFailed };

// challengeText: 16 hexadecimal digits, blanks and dashes allowed between bytes (as read out
// or copied from the user's screen); keyText: 32 or 48 digits, the same separators allowed.
// On Ok, response holds upper-case digits in groups of four ("1A2B 3C4D 5E6F 7081"); otherwise
// error says what is wrong without quoting the key.
ResponseStatus ComputeResponse(sim::ICrypto& crypto, const std::string& challengeText,
                               const std::string& keyText, std::string& response, std::string& error);

} // namespace helpdesk
