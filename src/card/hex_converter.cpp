#include "card/hex_converter.h"

namespace {

int DigitValue(wchar_t ch) {
    if (ch >= L'0' && ch <= L'9') return ch - L'0';
    if (ch >= L'A' && ch <= L'F') return ch - L'A' + 10;
    if (ch >= L'a' && ch <= L'f') return ch - L'a' + 10;
    return -1;
}

} // namespace

namespace NV {
namespace Framework {

void CConverter::BinToHex(const uint8_t* data, size_t size, CSecStr& out) {
    static const wchar_t kDigits[] = L"0123456789ABCDEF";
    out.Empty();
    if (!data) return;
    for (size_t i = 0; i < size; ++i) {
        const wchar_t pair[2] = {kDigits[data[i] >> 4], kDigits[data[i] & 0x0F]};
        out.Append(pair, 2);
    }
}

bool CConverter::HexToBin(const CSecStr& hex, std::vector<uint8_t>& out) {
    WipeBytes(out);
    const int length = hex.GetLength();
    if (length % 2 != 0) return false;
    out.reserve(static_cast<size_t>(length / 2));
    for (int i = 0; i < length; i += 2) {
        const int high = DigitValue(hex[i]);
        const int low = DigitValue(hex[i + 1]);
        if (high < 0 || low < 0) {
            WipeBytes(out);
            return false;
        }
        out.push_back(static_cast<uint8_t>(high << 4 | low));
    }
    return true;
}

} // namespace Framework
} // namespace NV

void WipeBytes(std::vector<uint8_t>& bytes) {
    if (!bytes.empty()) SecureWipe(bytes.data(), bytes.size());
    bytes.clear();
}
