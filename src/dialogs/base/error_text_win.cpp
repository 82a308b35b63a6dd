#include "dialogs/base/error_text_win.h"

#include "dialogs/base/error_strings.h"
#include "framework/dialog_win.h"

namespace {
int LoadFromResources(unsigned id, wchar_t* buffer, int capacity) {
    HINSTANCE module = fw::ResourceModule();
    return module ? LoadStringW(module, id, buffer, capacity) : 0;
}
} // namespace

const wchar_t* ErrorText(int code) {
    static ErrorTextBuffer texts;
    return texts.Get(code, LoadFromResources);
}
