// The cipher and random source the simulated card needs. The module uses CNG
// (cng_crypto_win.cpp); native tests use a deterministic stand-in.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

class ICrypto {
  public:
    virtual ~ICrypto() = default;
    virtual void Random(uint8_t* out, size_t count) = 0;
    // One 8-byte block, 3DES-EDE in ECB, with a 16-byte (two-key) or 24-byte (three-key) key.
    virtual bool Encrypt3DesBlock(const std::vector<uint8_t>& key, const uint8_t in[8], uint8_t out[8]) = 0;
};

} // namespace sim
