#include "hex.h"

#include "services/secstr.h"

namespace sim {

namespace {

int DigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool IsSeparator(char c) {
    return c == ' ' || c == '\t' || c == '-';
}

} // namespace

bool ParseHex(const std::string& text, HexSeparators separators, std::vector<uint8_t>& out,
              std::string* error) {
    // Sized once so that no reallocation leaves an unwiped copy of a key behind.
    std::vector<uint8_t> bytes;
    bytes.reserve(text.size() / 2 + 1);
    struct WipeOnExit {
        std::vector<uint8_t>& v;
        ~WipeOnExit() {
            if (!v.empty()) SecureWipe(v.data(), v.size());
        }
    } wipe{bytes};
    int high = -1;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (separators == HexSeparators::Allow && IsSeparator(c)) {
            if (high >= 0) {
                // A separator inside a byte would make "1 2" mean 0x12: surely a typing mistake.
                if (error) *error = "separator inside a byte at character " + std::to_string(i + 1);
                return false;
            }
            continue;
        }
        const int value = DigitValue(c);
        if (value < 0) {
            if (error) *error = "character " + std::to_string(i + 1) + " is not a hexadecimal digit";
            return false;
        }
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | value));
            high = -1;
        }
    }
    if (high >= 0) {
        if (error) *error = "odd number of hexadecimal digits";
        return false;
    }
    out.swap(bytes);
    return true;
}

std::string FormatHex(const uint8_t* data, size_t count, size_t group) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        if (group > 0 && i > 0 && i % group == 0) text += ' ';
        text += kDigits[data[i] >> 4];
        text += kDigits[data[i] & 15];
    }
    return text;
}

} // namespace sim
