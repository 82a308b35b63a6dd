// Hexadecimal text of byte strings (challenges, responses, unlock codes, serial numbers). The
// text is held in CSecStr because most of these are secrets.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "services/secstr.h"

namespace NV {
namespace Framework {

class CConverter {
  public:
    // Two upper-case digits a byte, no separators; replaces the text of out.
    static void BinToHex(const uint8_t* data, size_t size, CSecStr& out);
    static void BinToHex(const std::vector<uint8_t>& data, CSecStr& out) {
        BinToHex(data.data(), data.size(), out);
    }
    // Digits of either case, an even number of them; false (out emptied) for anything else.
    static bool HexToBin(const CSecStr& hex, std::vector<uint8_t>& out);
};

} // namespace Framework
} // namespace NV

// Overwrites a byte string that held a secret, then empties it.
void WipeBytes(std::vector<uint8_t>& bytes);
