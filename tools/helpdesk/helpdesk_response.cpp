#include "helpdesk_response.h"

#include <cstdint>
#include <vector>

#include "hex.h"
#include "secure_bytes.h"

namespace helpdesk {

ResponseStatus ComputeResponse(sim::ICrypto& crypto, const std::string& challengeText,
                               const std::string& keyText, std::string& response, std::string& error) {
    std::vector<uint8_t> challenge;
    std::string why;
    if (!sim::ParseHex(challengeText, sim::HexSeparators::Allow, challenge, &why)) {
        error = "challenge: " + why;
        return ResponseStatus::BadInput;
    }
    if (challenge.size() != 8) {
        error =
            "challenge: expected 8 bytes (16 hexadecimal digits), got " + std::to_string(challenge.size());
        return ResponseStatus::BadInput;
    }
    std::vector<uint8_t> keyBytes;
    if (!sim::ParseHex(keyText, sim::HexSeparators::Allow, keyBytes, &why)) {
        error = "administrator key: " + why;
        return ResponseStatus::BadInput;
    }
    const sim::SecureBytes key(std::move(keyBytes));
    if (key.Size() != 16 && key.Size() != 24) {
        error = "administrator key: expected 16 or 24 bytes (32 or 48 hexadecimal digits), got " +
                std::to_string(key.Size());
        return ResponseStatus::BadInput;
    }
    uint8_t block[8] = {};
    if (!crypto.Encrypt3DesBlock(key.Bytes(), challenge.data(), block)) {
        error = "the 3DES cipher is not available";
        return ResponseStatus::CipherFailed;
    }
    response = sim::FormatHex(block, sizeof block, 2);
    return ResponseStatus::Ok;
}

} // namespace helpdesk
