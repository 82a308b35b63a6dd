// Shared by the simulator's native tests: a deterministic cipher and exception capture.
#pragma once
#include <cstdint>
#include <vector>

#include "sim_controller.h"

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

// The module code of the IException* an operation throws; 0 when it throws nothing.
template <class F> uint32_t CodeOf(F&& operation) {
    try {
        operation();
    } catch (NV::Framework::IException* e) {
        const uint32_t code = e->GetCode();
        e->Release();
        return code;
    }
    return 0;
}

} // namespace simtest
