// Hexadecimal text typed by a help-desk agent or read from a profile.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hex.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (sim::HexSeparators separators : {sim::HexSeparators::Refuse, sim::HexSeparators::Allow}) {
        std::vector<uint8_t> bytes;
        std::string error;
        if (!sim::ParseHex(text, separators, bytes, &error)) {
            if (error.empty()) __builtin_trap();
            continue;
        }
        // What was read writes back to text that reads the same, grouped or not.
        for (size_t group : {size_t{0}, size_t{4}}) {
            std::vector<uint8_t> again;
            const std::string written = sim::FormatHex(bytes.data(), bytes.size(), group);
            if (!sim::ParseHex(written, sim::HexSeparators::Allow, again, nullptr) || again != bytes)
                __builtin_trap();
        }
    }
    return 0;
}
