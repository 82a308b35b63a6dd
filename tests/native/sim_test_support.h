// Shared by the simulator's native tests: a deterministic cipher, and the module helpers.
#pragma once
#include <cstdint>
#include <vector>

#include "sim_controller.h"
#include "smmw_test_support.h"

namespace simtest {

// Stands in for 3DES: any fixed function of key and block tells a right response from a wrong one.
class FakeCrypto : public sim::ICrypto {
  public:
    void Random(uint8_t* out, size_t count) override {
        for (size_t i = 0; i < count; ++i)
            out[i] = static_cast<uint8_t>(m_next++);
    }
    bool Encrypt3DesBlock(const std::vector<uint8_t>& key, const uint8_t in[8], uint8_t out[8]) override {
        if (key.size() != 16 && key.size() != 24) return false;
        for (size_t i = 0; i < 8; ++i)
            out[i] = static_cast<uint8_t>(in[i] ^ key[i] ^ (key[i + 8] * 3) ^
                                          (key.size() == 24 ? key[i + 16] : 0x5A));
        return true;
    }

  private:
    uint32_t m_next = 0x40;
};


} // namespace simtest
