// Hexadecimal text of the card layer (identifiers, challenges from the card), checked against
// the simulator's reader of the same notation: both must agree on every input.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "card/hex_converter.h"
#include "hex.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CSecStr text;
    std::string narrow;
    for (size_t i = 0; i + 1 < size; i += 2) {
        const wchar_t ch = static_cast<wchar_t>(data[i] | data[i + 1] << 8);
        if (ch == 0) continue; // a CSecStr ends at its terminator
        text.AppendChar(ch);
        narrow += ch < 0x80 ? static_cast<char>(ch) : '?';
    }
    std::vector<uint8_t> bytes, expected;
    const bool ok = NV::Framework::CConverter::HexToBin(text, bytes);
    const bool expectedOk = sim::ParseHex(narrow, sim::HexSeparators::Refuse, expected, nullptr);
    if (ok != expectedOk || (ok && bytes != expected) || (!ok && !bytes.empty())) __builtin_trap();
    if (ok) {
        CSecStr written;
        NV::Framework::CConverter::BinToHex(bytes, written);
        std::vector<uint8_t> again;
        if (!NV::Framework::CConverter::HexToBin(written, again) || again != bytes) __builtin_trap();
    }
    return 0;
}
