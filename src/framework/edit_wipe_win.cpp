#include "framework/edit_wipe_win.h"

#include <string>

namespace fw {

void WipeEditText(HWND edit) {
    if (!edit || !IsWindow(edit)) return;
    const int length = GetWindowTextLengthW(edit);
    if (length > 0) {
        // A replacement of the same length is written into the edit's own buffer, where a new
        // text (WM_SETTEXT) would get a fresh one and free the old unwiped. Done twice: the
        // second, undoable one overwrites the undo copy with the filler the first one wrote.
        const std::wstring filler(static_cast<size_t>(length), L'0');
        SendMessageW(edit, EM_SETSEL, 0, -1);
        SendMessageW(edit, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(filler.c_str()));
        SendMessageW(edit, EM_SETSEL, 0, -1);
        SendMessageW(edit, EM_REPLACESEL, TRUE, reinterpret_cast<LPARAM>(filler.c_str()));
    }
    SendMessageW(edit, EM_EMPTYUNDOBUFFER, 0, 0);
    SetWindowTextW(edit, L"");
}

} // namespace fw
