#include "dialogs/unlock/unlock_text.h"

#include "card/card_result.h"

namespace unlock {

namespace {

bool IsHexDigit(wchar_t c) {
    return (c >= L'0' && c <= L'9') || (c >= L'A' && c <= L'F') || (c >= L'a' && c <= L'f');
}

CSecStr Grouped(const CSecStr& text, int length) {
    CSecStr out;
    for (int i = 0; i < length; ++i) {
        if (i > 0 && i % 4 == 0) out.AppendChar(L'-');
        out.AppendChar(text[i]);
    }
    return out;
}

} // namespace

CSecStr GroupByFour(const CSecStr& text) {
    return Grouped(text, text.GetLength());
}

CSecStr FirstFourGroups(const CSecStr& challenge) {
    const int length = challenge.GetLength();
    return Grouped(challenge, length < 16 ? length : 16);
}

CSecStr WithoutDashes(const CSecStr& code) {
    CSecStr out;
    for (int i = 0; i < code.GetLength(); ++i)
        if (code[i] != L'-') out.AppendChar(code[i]);
    return out;
}

bool IsResponseWellFormed(const CSecStr& code) {
    int digits = 0;
    for (int i = 0; i < code.GetLength(); ++i) {
        const wchar_t c = code[i];
        if (c == L'-') continue;
        if (!IsHexDigit(c)) return false;
        ++digits;
    }
    return digits == 16;
}

int MessageHeight(int textWidth, int textHeight, int controlWidth) {
    const int lines = controlWidth > 0 ? textWidth / controlWidth : 0;
    return (lines + 1) * textHeight;
}

Outcome OutcomeOf(uint32_t cardResult) {
    if (cardResult == CV_OBJ_API_OK) return Outcome::Unlocked;
    if (cardResult == CV_OBJ_API_WRONG_CODE) return Outcome::WrongCode;
    return Outcome::Failed;
}

} // namespace unlock
