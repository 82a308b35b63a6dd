// Shared by the simulator's native tests: a deterministic cipher, a simulator to load profiles
// into, and the module helpers.
#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
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

// One of the profiles shipped with the simulator.
inline std::string ShippedProfile(const char* name) {
    std::ostringstream text;
    text << std::ifstream(std::string(CVSIM_PROFILES_DIR) + "/" + name, std::ios::binary).rdbuf();
    return text.str();
}

// A simulator on a clock the test moves, with reader R1 in view.
class SimTest : public ::testing::Test {
  protected:
    void Load(const std::string& json) {
        std::string error;
        ASSERT_TRUE(controller.LoadProfile(json, &error)) << error;
    }
    NV::SMMW::IPinCredential* UserPin(const wchar_t* reader = L"R1") {
        return PrimaryPin(OpenContext(controller, reader));
    }
    uint32_t TriesLeft() {
        sim::SimPinState state{};
        EXPECT_TRUE(controller.GetPinState(L"R1", &state));
        return state.triesLeft;
    }

    std::chrono::steady_clock::time_point now{};
    FakeCrypto crypto;
    sim::SimController controller{crypto, [this] { return now; }};
};

} // namespace simtest
