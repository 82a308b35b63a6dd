// CSecStr's resource loading, the one part that needs the Windows API.
#include "services/secstr.h"

#include <windows.h>

bool CSecStr::LoadStringW(void* module, unsigned id) {
    // With a zero buffer size LoadStringW hands back a pointer to the read-only resource text
    // and its length, so the text is copied once, straight into wipeable memory.
    const wchar_t* text = nullptr;
    int length = ::LoadStringW(static_cast<HINSTANCE>(module), id, reinterpret_cast<LPWSTR>(&text), 0);
    if (length <= 0 || !text) return false;
    *this = CSecStr(text, length);
    return true;
}
