// The simulated card's cipher and random source, from Windows CNG.
#pragma once
#include "crypto.h"

namespace sim {

class CngCrypto : public ICrypto {
  public:
    // Throws std::runtime_error when the system generator fails (the module reports
    // SMMW_E_INTERNAL): a challenge must never be guessable.
    void Random(uint8_t* out, size_t count) override;
    bool Encrypt3DesBlock(const std::vector<uint8_t>& key, const uint8_t in[8], uint8_t out[8]) override;
};

} // namespace sim
