#include "dialogs/base/watch_rules.h"

#include "services/event_bus.h"

namespace {
// Reader names are compared the way the C runtime's _wcsicmp does in the "C" locale: only
// A-Z fold, so the result does not depend on the user's locale.
wchar_t FoldAscii(wchar_t ch) {
    return ch >= L'A' && ch <= L'Z' ? static_cast<wchar_t>(ch + 32) : ch;
}
} // namespace

bool ReaderMatches(const wchar_t* watchedReader, const wchar_t* eventReader) {
    if (!watchedReader || !*watchedReader) return true;
    const wchar_t* a = watchedReader;
    const wchar_t* b = eventReader ? eventReader : L"";
    for (; *a && FoldAscii(*a) == FoldAscii(*b); ++a, ++b) {
    }
    return FoldAscii(*a) == FoldAscii(*b);
}

bool IsSessionLockingCode(int code) {
    return code == CV_SESSION_CODE_LOCKING || code == CV_SESSION_CODE_LOCKING_2;
}
